// libcurl, loaded with the first download.
#pragma once

#include <curl/curl.h>

namespace ZeroTouch {

// The calls that are used. With the thirty libraries that it needs, libcurl takes as much memory as all the
// rest of the host: one that only stands by, with provisioning disabled, does without.
struct Curl {
  decltype(&::curl_easy_init) easyInit = nullptr;
  decltype(&::curl_multi_init) multiInit = nullptr;
  decltype(&::curl_easy_setopt) easySetopt = nullptr;
  decltype(&::curl_multi_add_handle) multiAddHandle = nullptr;
  decltype(&::curl_multi_perform) multiPerform = nullptr;
  decltype(&::curl_multi_fdset) multiFdset = nullptr;
  decltype(&::curl_multi_info_read) multiInfoRead = nullptr;
  decltype(&::curl_easy_strerror) easyStrerror = nullptr;
  decltype(&::curl_slist_append) slistAppend = nullptr;
  decltype(&::curl_slist_free_all) slistFreeAll = nullptr;
  decltype(&::curl_multi_cleanup) multiCleanup = nullptr;
  decltype(&::curl_easy_cleanup) easyCleanup = nullptr;

  // Null, after a warning, when the library cannot be loaded; tried again the next time.
  static Curl const* load();
  // For tests: these calls instead of the library's, until null is given. The caller keeps them alive.
  static void replacementIs(Curl const* replacement);
};

}  // namespace ZeroTouch
