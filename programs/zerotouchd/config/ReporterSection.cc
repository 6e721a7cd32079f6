#include "programs/zerotouchd/config/ReporterSection.h"

#include <algorithm>

#include "platform/model/values/Grammar.h"

namespace {

// A URL that libcurl can post to. That its host exists is seen when something is posted.
Setter collectorUrl(Kel::String& target) {
  return [&target](toml::node const& node) {
    text([&](Kel::String const& url) {
      auto const refuse = [&](char const* expected) {
        fail(node.source(), "'" + Grammar::withoutPasswords(url) + "': expected " + expected);
      };
      bool const mqtt = url.starts_with("mqtt://");
      if (!mqtt && !url.starts_with("http://") && !url.starts_with("https://"))
        refuse("a URL with http://, https:// or mqtt://");
      if (!Grammar::fileNameFault(url).empty() || url.find(' ') != Kel::String::npos)
        refuse("at most 4,096 printable ASCII characters without blanks");
      auto const host = url.find("//") + 2;
      auto const path = std::min(url.find('/', host), url.size());
      if (path == host || url[path - 1] == '@') refuse("the name or address of a host");
      if (mqtt && path + 1 >= url.size()) refuse("a topic, as mqtt://host/topic");
      target = url;
    })(node);
  };
}

}  // namespace

Section reporterSection(ReporterConfig& config) {
  return {{"url", collectorUrl(config.url)},
          {"spool", absolutePath(config.spool)},
          {"spool_size", bytes(config.spoolSize)}};
}
