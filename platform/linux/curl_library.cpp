#include "platform/linux/curl_library.h"

#include <dlfcn.h>

namespace platform::posix {
namespace {

constexpr const char* kName = "libcurl.so.4";

template <typename Function>
bool Bind(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(library, name));
  return *function != nullptr;
}

bool Load(CurlLibrary* curl) {
  void* library = dlopen(kName, RTLD_NOW | RTLD_LOCAL);
  return library != nullptr && Bind(library, "curl_global_init", &curl->globalInit) &&
         Bind(library, "curl_easy_init", &curl->easyInit) &&
         Bind(library, "curl_easy_cleanup", &curl->easyCleanup) &&
         Bind(library, "curl_easy_setopt", &curl->easySetopt) &&
         Bind(library, "curl_easy_getinfo", &curl->easyGetinfo) &&
         Bind(library, "curl_easy_perform", &curl->easyPerform) &&
         Bind(library, "curl_free", &curl->free) &&
         Bind(library, "curl_slist_append", &curl->slistAppend) &&
         Bind(library, "curl_slist_free_all", &curl->slistFreeAll) &&
         Bind(library, "curl_url", &curl->url) &&
         Bind(library, "curl_url_cleanup", &curl->urlCleanup) &&
         Bind(library, "curl_url_get", &curl->urlGet) &&
         Bind(library, "curl_url_set", &curl->urlSet) &&
         curl->globalInit(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

}  // namespace

const CurlLibrary* CurlLibrary::Get() {
  static CurlLibrary curl;
  static const bool isLoaded = Load(&curl);
  return isLoaded ? &curl : nullptr;
}

}  // namespace platform::posix
