// libcurl, loaded when the first download asks for it: it brings some forty other libraries along,
// and most runs download nothing.
#pragma once

#include <curl/curl.h>

// The header checks the arguments of these two by macros, which a pointer does without.
#undef curl_easy_setopt
#undef curl_easy_getinfo

namespace platform::posix {

struct CurlLibrary {
  decltype(&curl_global_init) globalInit;
  decltype(&curl_easy_init) easyInit;
  decltype(&curl_easy_cleanup) easyCleanup;
  decltype(&curl_easy_setopt) easySetopt;
  decltype(&curl_easy_getinfo) easyGetinfo;
  decltype(&curl_easy_perform) easyPerform;
  decltype(&curl_free) free;
  decltype(&curl_slist_append) slistAppend;
  decltype(&curl_slist_free_all) slistFreeAll;
  decltype(&curl_url) url;
  decltype(&curl_url_cleanup) urlCleanup;
  decltype(&curl_url_get) urlGet;
  decltype(&curl_url_set) urlSet;

  // The library, ready for use and loaded until the process ends; null when the host has none.
  static const CurlLibrary* Get();
};

}  // namespace platform::posix
