#include "zerotouch/fetch/Curl.h"

#include <dlfcn.h>

#include "zerotouch/agent/Warnings.h"

namespace ZeroTouch {

namespace {
Curl const* replaced = nullptr;
}

void Curl::replacementIs(Curl const* replacement) { replaced = replacement; }

Curl const* Curl::load() {
  if (replaced != nullptr) return replaced;
  static Curl curl;
  if (curl.easyCleanup != nullptr) return &curl;
  void* const library = dlopen("libcurl.so.4", RTLD_LAZY | RTLD_LOCAL);
  auto const find = [&](auto& function, char const* name) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
    return function != nullptr;
  };
  bool const complete =
      library != nullptr && find(curl.easyInit, "curl_easy_init") &&
      find(curl.multiInit, "curl_multi_init") && find(curl.easySetopt, "curl_easy_setopt") &&
      find(curl.multiAddHandle, "curl_multi_add_handle") && find(curl.multiPerform, "curl_multi_perform") &&
      find(curl.multiFdset, "curl_multi_fdset") && find(curl.multiInfoRead, "curl_multi_info_read") &&
      find(curl.easyStrerror, "curl_easy_strerror") && find(curl.slistAppend, "curl_slist_append") &&
      find(curl.slistFreeAll, "curl_slist_free_all") && find(curl.multiCleanup, "curl_multi_cleanup") &&
      find(curl.easyCleanup, "curl_easy_cleanup");
  if (complete) return &curl;
  char const* const reason = dlerror();
  downloadImpossible.log(reason != nullptr ? reason : "libcurl.so.4 is not complete");
  if (library != nullptr) dlclose(library);
  return nullptr;
}

}  // namespace ZeroTouch
