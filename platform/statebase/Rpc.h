// JSON-RPC 2.0 over the state tree: one line in, at most one line out.
//
//   get     {path}                                  the value
//   get     {paths}                                 the values by path, read at one moment
//   list    {path}                                  what lies directly below: [{name, kind, ...}]
//   set     {path, value}                           an attribute or an entry; true
//   set     {path, attributes, replace}             an entity, made when it is absent; true
//   delete  {path}                                  an entry, an optional entity or all of a collection; true
//   watch   {path} or {paths}                       the value or values, and from then on notifications
//   unwatch {path} or {paths}                       whether it was watched; for a list by path
//   time    {}                                      the host's clock, to which the times in the tree belong
//
// A list of paths gives an object by path. A get of a list gives null for whatever does not exist. A watch,
// of one path or of a list, gives null for what does not exist at present, and refuses all of its paths when
// one of them cannot name anything. It sends {"method": "changed", "params": {path, value}}, where the value
// is null for what is gone. Errors carry data {path, reason}. Notifications (no id) are carried out and
// never answered, whatever becomes of them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/statebase/Tree.h"

namespace Statebase {

namespace RpcCode {
inline constexpr int parseError = -32700;
inline constexpr int invalidRequest = -32600;
inline constexpr int methodNotFound = -32601;
inline constexpr int invalidParams = -32602;
// Codes of our own.
inline constexpr int unknownPath = -32001;
inline constexpr int badValue = -32002;
inline constexpr int permission = -32003;
inline constexpr int tooMany = -32004;
}  // namespace RpcCode

class RpcError : public std::runtime_error {
 public:
  RpcError(int code, std::string const& reason, std::string path = {})
      : std::runtime_error(reason), code_(code), path_(std::move(path)) {}

  int code() const { return code_; }
  std::string const& path() const { return path_; }

 private:
  int code_;
  std::string path_;
};

// The most paths that one request may name.
inline constexpr std::size_t maxPaths = 64;

// What a request needs to know of the connection that it came by.
class RpcSession {
 public:
  virtual ~RpcSession() = default;
  virtual Role role() const = 0;
  // Reports changes below these paths from now on: all of them, or none when it throws RpcError or Refusal.
  virtual void watch(std::vector<std::string> const& paths) = 0;
  // Whether the path was watched.
  virtual bool unwatch(std::string const& path) = 0;
};

// Carries out the request; the answer ends with a newline, and is empty when there is none.
std::string rpcAnswer(Tree& tree, RpcSession& session, std::string_view line);

std::string rpcErrorLine(Kel::Value const& id, RpcError const& error);
std::string rpcChangedLine(std::string const& path, Kel::Value value);

}  // namespace Statebase
