// What becomes of the download: a startup configuration on flash, or a script that is run.
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "platform/kel/Loop.h"
#include "platform/kel/WholeFile.h"
#include "zerotouch/agent/Events.h"
#include "zerotouch/fetch/Contents.h"
#include "zerotouch/fetch/CurlTransfer.h"
#include "zerotouch/fetch/Install.h"
#include "zerotouch/sm/SmTrace.h"
#include "zerotouch/sm/ZeroTouchSm.h"
#include "zerotouch/utils/SettingsFile.h"
#include "zerotouch/utils/ZeroTouchUtils.h"

namespace ZeroTouch {

namespace {

namespace fs = std::filesystem;

constexpr char const* flashPath = "/flash";
// With room for what the temporary file's name has besides.
constexpr std::size_t maxNameBytes = 240;

// Whether `path`, once all links are followed, is `folder` or below it.
bool isWithin(fs::path const& path, fs::path const& folder) {
  std::error_code error;
  auto const relative = fs::relative(path, folder, error);
  return !error && !relative.empty() && *relative.begin() != "..";
}

}  // namespace

Kel::String saveFileObjection(Kel::String const& value) {
  if (value.front() != '/') return "it does not begin with /";
  if (value.find('\0') != Kel::String::npos) return "it holds a zero byte";
  for (auto const& part : fs::path(value)) {
    if (part == "..") return "it holds ..";
  }
  fs::path const path = filePathFromFSRoot(flashPath + value);
  std::error_code error;
  if (value.ends_with('/') || value.ends_with("/.") || fs::is_directory(path, error))
    return "it names a folder";
  if (path.filename().native().size() > maxNameBytes) return "its name is too long";
  if (!fs::is_directory(path.parent_path(), error)) return "its folder does not exist";
  if (!isWithin(path.parent_path(), filePathFromFSRoot(flashPath))) return "it leads out of the flash";
  return "";
}

Kel::String ZeroTouchSm::startupConfigDestination() const {
  Kel::String const value = configEntry().contains("SAVE_FILE") ? configEntry("SAVE_FILE") : "";
  if (value.empty()) return filePathFromFSRoot(defaultStartupConfigPath);
  Kel::String const objection = saveFileObjection(value);
  if (objection.empty()) return filePathFromFSRoot(flashPath + value);
  saveFileIgnored.log(value, objection);
  return filePathFromFSRoot(defaultStartupConfigPath);
}

Cause ZeroTouchSm::doCopyConfigOrExecScript() {
  if (bytesRead() == 0) {
    ZTP_CONFIG_DOWNLOAD_FAIL.log(shownUri(), "Zero bytes read");
    return {TransitionCause::fileEmpty,
            {downloadProblem_, downloadProblem_ == Problem::none ? "" : downloadOutcome()}};
  }
  if (fileIsHashPling()) {
    ZTP_CONFIG_DOWNLOAD_SUCCESS.log("config script", shownUri());
    doExecScript();
    return TransitionCause::none;
  }
  Trouble failure;
  if (!copyFile(configDownloadPath, startupConfigDestination().c_str(), failure)) {
    downloadNotUsable.log(failure.text);
    return {TransitionCause::configNotInstalled, failure};
  }
  fileCopySuccessIs(true);
  ZTP_CONFIG_DOWNLOAD_SUCCESS.log("startup-config", shownUri());
  return TransitionCause::none;
}

bool ZeroTouchSm::copyFile(char const* from, char const* to, Trouble& failure) const {
  SM_TRACE(5, " - Copying " << from << " to " << to);
  int error = 0;
  failure.text = Kel::replaceFileByCopy(
      to, from, config()->installMode(), [] { Kel::Loop::instance().signOfLife(); }, &error);
  if (failure.text.empty()) return true;
  failure.problem = error == ENOSPC || error == EDQUOT ? Problem::flashFull : Problem::flashUnwritable;
  SM_TRACE(1, " - Failed to open file for copying: " << failure.text);
  return false;
}

// What comes is installed whatever it is, so that what can hardly be meant is at least told.
Trouble ZeroTouchSm::doubtsAboutConfig() const {
  auto const doubt = doubtsAbout(configDownloadPath, {downloadProblem_, downloadOutcome()});
  if (doubt.problem != Problem::none) configDoubtful.log(shownUri(), doubt.text);
  return doubt;
}

void ZeroTouchSm::removeUnfinishedCopies() const {
  Kel::String const value = configEntry().contains("SAVE_FILE") ? configEntry("SAVE_FILE") : "";
  Kel::removeUnfinished(filePathFromFSRoot(defaultStartupConfigPath));
  if (!value.empty() && saveFileObjection(value).empty())
    Kel::removeUnfinished(filePathFromFSRoot(flashPath + value));
}

}  // namespace ZeroTouch
