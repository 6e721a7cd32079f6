// The downloaded script as a child process: started, bounded, stopped, what its end means, and what it wrote.
// What a script that succeeds has written to the flash is flushed before provisioning is switched off for the
// next boot, as a configuration that is installed is: a power cut finds both on the disk, or provisioning on.
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "platform/kel/Assert.h"
#include "platform/kel/Format.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/fetch/Contents.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/fetch/Install.h"
#include "zerotouch/sm/ProvisioningTimers.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

constexpr char const* configScriptStdOutPath = "/var/run/ztp-config-script.stdout";
constexpr char const* configScriptStdErrPath = "/var/run/ztp-config-script.stderr";
constexpr mode_t ownerMayRun = 0700;

constexpr std::size_t maxOutputBytes = 4'096;
constexpr int cannotBeRun = 126;  // and from there on: what a program is given that nobody could start

constexpr char const* flushProgram = "/bin/sync";

}  // namespace

void ZeroTouchSm::scriptChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  scriptChildProcess_ = child;
  scriptStatus_ = child ? Kel::Reactor(child, &Kel::ChildSiginfo::NotifieeConst::onStatusCode, this,
                                       &ZeroTouchSm::handleScriptChildProcessStatus)
                        : Kel::Reactor();
  scriptSignalled_ = false;
}
void ZeroTouchSm::scriptChildProcessDel() { scriptChildProcessIs(nullptr); }

void ZeroTouchSm::doExecScript() {
  int const ret = chmod(configDownloadPath, ownerMayRun);
  if (ret != 0) {
    downloadNotUsable.log(
        Kel::format("cannot make %s executable: %s", configDownloadPath, std::strerror(errno)));
  }
  KEL_ASSERT(!ret, "!ret");
  ZTP_EXEC_SCRIPT.log();
  setenv("ZTP_EXEC_SCRIPT", "1", 1);
  Kel::String path = configDownloadPath;
  char* argv[] = {path.data(), nullptr};
  SM_TRACE(5, " - Running " << argvToString(argv));
  scriptChildProcessIs(runCmd(argv, configScriptStdOutPath, configScriptStdErrPath));
}

void ZeroTouchSm::handleScriptChildProcessStatus() {
  auto const script = scriptChildProcess();
  SM_TRACE(5, " - Config script statusCode=" << script->statusCode());
  if (!script->ended()) return;
  bool const decides = !scriptSignalled_ && mayActIn(stateCopyConfigOrExecScript());
  scriptChildProcessDel();
  // One that was stopped has been reported by whoever stopped it; the run has moved on.
  if (!decides) return;
  if (script->statusCode() == Kel::ChildSiginfo::killed) {
    ZTP_EXEC_SCRIPT_SIGNALED.log(strsignal(script->signal()));
    doStateTransition(stateCopyConfigOrExecScript(), stateRetry(),
                      {TransitionCause::scriptKilled, strsignal(script->signal())});
  } else if (script->exitStatus() == 0) {
    ZTP_EXEC_SCRIPT_SUCCESS.log();
    doFlushFlash();
  } else {
    Kel::String error = Kel::format("%d. ", script->exitStatus());
    Kel::String const output = configScriptOutput();
    if (!output.empty()) error += "Output: " + output;
    ZTP_EXEC_SCRIPT_FAIL.log(error);
    Trouble trouble =
        script->exitStatus() >= cannotBeRun ? interpreterTrouble(configDownloadPath) : Trouble{};
    Kel::String const status = Kel::format("exit status %d", script->exitStatus());
    trouble.text = trouble.text.empty() ? status : status + ", " + trouble.text;
    doStateTransition(stateCopyConfigOrExecScript(), stateRetry(), {TransitionCause::scriptFailed, trouble});
  }
}

Kel::String ZeroTouchSm::configScriptOutput() const {
  Kel::String const output = scriptOutput(configScriptStdErrPath) + scriptOutput(configScriptStdOutPath);
  SM_TRACE(5, " config script output: " << output);
  return output;
}

// A flush can take as long as the disk does, so a child does it.
void ZeroTouchSm::doFlushFlash() {
  Kel::String program = flushProgram, option = "-f", flash = filePathFromFSRoot("/flash");
  char* argv[] = {program.data(), option.data(), flash.data(), nullptr};
  SM_TRACE(5, " - Running " << argvToString(argv));
  flashFlush_ = runCmd(argv, nullptr, nullptr);
  flashFlushStatus_ = Kel::Reactor(flashFlush_, &Kel::ChildSiginfo::NotifieeConst::onStatusCode, this,
                                   &ZeroTouchSm::handleFlashFlushStatus);
  doStartScriptExecTimer();
}

void ZeroTouchSm::handleFlashFlushStatus() {
  auto const flush = flashFlush_;
  if (!flush->ended()) return;
  flashFlush_ = nullptr;
  flashFlushStatus_ = {};
  if (!mayActIn(stateCopyConfigOrExecScript())) return;
  int const status = flush->exitStatus();
  if (flush->statusCode() == Kel::ChildSiginfo::killed) {
    failFlashFlush(Kel::format("%s was ended by a signal: %s", flushProgram, strsignal(flush->signal())));
  } else if (status != 0 && status < cannotBeRun) {
    failFlashFlush(Kel::format("%s has ended with exit status %d", flushProgram, status));
  } else {
    // When the program is missing, nothing is known to be wrong with the flash.
    if (status != 0) flashNotFlushed.log(Kel::format("%s cannot be run", flushProgram));
    doCreateGuardFileAndShutdown(TransitionCause::scriptSucceeded);
  }
}

void ZeroTouchSm::failFlashFlush(Kel::String const& why) {
  flashNotFlushed.log(why);
  doStateTransition(stateCopyConfigOrExecScript(), stateRetry(), {TransitionCause::configNotInstalled, why});
}

void ZeroTouchSm::handleHostEnd() {
  if (!flashFlush_ || !mayActIn(stateCopyConfigOrExecScript())) return;
  endFlashFlush();
  doCreateGuardFileAndShutdown(TransitionCause::scriptSucceeded);
}

// A disk that hangs keeps even a killed child; nobody waits for it any more.
void ZeroTouchSm::endFlashFlush() {
  if (!flashFlush_) return;
  Kel::kill(flashFlush_->pid(), SIGKILL);
  flashFlush_ = nullptr;
  flashFlushStatus_ = {};
}

void ZeroTouchSm::doKillRunningScript() {
  endFlashFlush();
  auto const script = scriptChildProcess();
  if (!script || script->ended() || scriptSignalled_) return;
  SM_TRACE(5, " - Killing running script, pid=" << script->pid());
  scriptSignalled_ = true;
  Kel::kill(script->pid(), SIGTERM);
}

// One that was asked to end and did not: the next attempt is to have the file, and the record, to itself.
void ZeroTouchSm::endLeftoverScript() {
  auto const script = scriptChildProcess();
  if (!script) return;
  SM_TRACE(1, " - Script of an earlier attempt still runs, pid=" << script->pid());
  Kel::kill(script->pid(), SIGKILL);
  scriptChildProcessDel();
}

void ZeroTouchSm::handleScriptExecTimeoutValue() {
  SM_TRACE(5, " scriptExecTimeout: " << config()->scriptExecTimeout());
  bool const bounded = timerActive() && timer()->name() == ScriptExecTimer::settings.name;
  bool const runs = scriptChildProcess() || flashFlush_;
  if (!runs || !bounded || !mayActIn(stateCopyConfigOrExecScript())) return;
  doCancelTimer();
  doStartScriptExecTimer();
}

Kel::String scriptOutput(char const* path) {
  auto const output = readStart(path, maxOutputBytes);
  if (!output) return "";
  Kel::String result;
  std::istringstream lines(output->text);
  for (Kel::String line; std::getline(lines, line);) result += Kel::printable(line) + ". ";
  return output->cut ? result + "[output cut] " : result;
}

}  // namespace ZeroTouch
