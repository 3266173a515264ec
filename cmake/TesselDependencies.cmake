# Third-party libraries, as one target each: dep_<x>. Linux takes Debian's packages. Windows takes the
# libraries that scripts/windows-libraries builds from the source packages of the same Debian release.
# pugixml is compiled with the programs, since it is changed; on Linux JsonCpp is too, since Debian has
# no archive of it. What is written in C++ is linked as archives, and so is the C++ runtime
# (tessel_program): to load and bind those libraries takes longer than most patches.
# On both platforms a library is used with the same defines, and its headers count as system headers.
#
#   dep_openssl         libcrypto
#   dep_tinyxml         TinyXML 2.6.2 with Debian's patches, TIXML_USE_STL
#   dep_pugixml         with XPath functions that count characters
#   dep_pcre2           16-bit code units
#   dep_jsoncpp         on Windows as AmsJson.dll, on Linux compiled with the programs
#   dep_gtest           GoogleTest and GoogleMock; dep_gtest_main brings main() along
#   dep_benchmark       Google Benchmark; dep_benchmark_main brings main() along
#   dep_curl            Linux only; headers, since the library is loaded when it is needed
#   dep_libgit2         Linux only
#   dep_hivex           Linux only, and only where it is installed
#   dep_libxml2         a peer of the benches: Linux only, and only where it is installed

include_guard(GLOBAL)

find_package(Threads REQUIRED)

if(WIN32)
  # Only the script knows the folder, whose name is a digest of versions and build steps.
  execute_process(
    COMMAND "${PROJECT_SOURCE_DIR}/scripts/windows-libraries" --path
    OUTPUT_VARIABLE tessel_windows_libraries
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0 OR NOT IS_DIRECTORY "${tessel_windows_libraries}")
    message(FATAL_ERROR "The libraries for Windows aren't there yet: run scripts/windows-libraries")
  endif()
  set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    "${PROJECT_SOURCE_DIR}/scripts/windows-libraries"
    "${PROJECT_SOURCE_DIR}/scripts/lib/library-sources.txt")
endif()

# tessel_dependency(<target> PACKAGE <Debian package> HEADER <header> LIBRARIES <name>...
#                   [INCLUDE_SUFFIX <folder>] [WINDOWS_SYSTEM <name>...] [DEFINES <define>...]
#                   [DEPENDS <target>...] [OPTIONAL] [STATIC])
# STATIC takes the archives of the libraries, as Windows does with all.
function(tessel_dependency target)
  cmake_parse_arguments(PARSE_ARGV 1 arg
    "OPTIONAL;STATIC" "PACKAGE;HEADER;INCLUDE_SUFFIX" "LIBRARIES;WINDOWS_SYSTEM;DEFINES;DEPENDS")
  if(WIN32)
    set(places PATHS "${tessel_windows_libraries}" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    set(remedy "remove ${tessel_windows_libraries} and run scripts/windows-libraries")
  else()
    set(places "")
    set(remedy "install ${arg_PACKAGE}")
  endif()

  # Not cached, so that a change of the library folder is seen.
  unset(header_folder)
  find_path(header_folder "${arg_HEADER}"
    PATH_SUFFIXES "${arg_INCLUDE_SUFFIX}" "include/${arg_INCLUDE_SUFFIX}" NO_CACHE ${places})
  set(libraries "")
  set(missing "")
  if(NOT header_folder)
    set(missing "${arg_HEADER}")
  endif()
  foreach(name IN LISTS arg_LIBRARIES)
    unset(library)
    if(arg_STATIC AND NOT WIN32)
      set(name "lib${name}.a")
    endif()
    find_library(library "${name}" PATH_SUFFIXES lib NO_CACHE ${places})
    if(library)
      list(APPEND libraries "${library}")
    else()
      set(missing "${name}")
    endif()
  endforeach()
  if(missing)
    if(arg_OPTIONAL)
      return()
    endif()
    message(FATAL_ERROR "${missing} wasn't found: ${remedy}")
  endif()

  if(WIN32)
    list(APPEND libraries ${arg_WINDOWS_SYSTEM})
  endif()
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE "${header_folder}")
  target_compile_definitions(${target} INTERFACE ${arg_DEFINES})
  target_link_libraries(${target} INTERFACE ${libraries} ${arg_DEPENDS})
endfunction()

tessel_dependency(dep_openssl PACKAGE libssl-dev HEADER openssl/evp.h LIBRARIES crypto
  WINDOWS_SYSTEM bcrypt advapi32 crypt32 user32 ws2_32 DEPENDS Threads::Threads)
tessel_dependency(dep_tinyxml STATIC PACKAGE libtinyxml-dev HEADER tinyxml.h LIBRARIES tinyxml
  DEFINES TIXML_USE_STL)
tessel_dependency(dep_pcre2 STATIC PACKAGE libpcre2-dev HEADER pcre2.h LIBRARIES pcre2-16
  DEFINES PCRE2_CODE_UNIT_WIDTH=16 $<$<BOOL:${WIN32}>:PCRE2_STATIC>)
if(WIN32)
  tessel_dependency(dep_jsoncpp HEADER json/json.h INCLUDE_SUFFIX jsoncpp LIBRARIES jsoncpp
    DEFINES JSON_DLL)
endif()
tessel_dependency(dep_gtest PACKAGE libgmock-dev HEADER gmock/gmock.h LIBRARIES gmock gtest
  DEPENDS Threads::Threads)
tessel_dependency(dep_gtest_main PACKAGE libgtest-dev HEADER gtest/gtest.h LIBRARIES gtest_main
  DEPENDS dep_gtest)
tessel_dependency(dep_benchmark PACKAGE libbenchmark-dev HEADER benchmark/benchmark.h
  LIBRARIES benchmark WINDOWS_SYSTEM shlwapi DEFINES $<$<BOOL:${WIN32}>:BENCHMARK_STATIC_DEFINE>
  DEPENDS Threads::Threads)
tessel_dependency(dep_benchmark_main PACKAGE libbenchmark-dev HEADER benchmark/benchmark.h
  LIBRARIES benchmark_main DEPENDS dep_benchmark)
if(NOT WIN32)
  tessel_dependency(dep_hivex OPTIONAL PACKAGE libhivex-dev HEADER hivex.h LIBRARIES hivex)
  tessel_dependency(dep_curl PACKAGE libcurl4-openssl-dev HEADER curl/curl.h)
  tessel_dependency(dep_libgit2 PACKAGE libgit2-dev HEADER git2/patch.h LIBRARIES git2)
  tessel_dependency(dep_libxml2 OPTIONAL PACKAGE libxml2-dev HEADER libxml/parser.h
    INCLUDE_SUFFIX libxml2 LIBRARIES xml2)
endif()

set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  "${PROJECT_SOURCE_DIR}/scripts/library-source"
  "${PROJECT_SOURCE_DIR}/scripts/lib/library-sources.txt"
  "${PROJECT_SOURCE_DIR}/scripts/lib/pugixml-characters.sed")

# tessel_compiled_dependency(<target> <source package> <include folder> <source>...)
# The script fetches the source when it isn't there yet. Where the cache is doesn't show in the programs.
function(tessel_compiled_dependency target package include)
  execute_process(
    COMMAND "${PROJECT_SOURCE_DIR}/scripts/library-source" "${package}"
    OUTPUT_VARIABLE folder
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "There is no source of ${package}: scripts/library-source says why")
  endif()
  list(TRANSFORM ARGN PREPEND "${folder}/")
  add_library(${target} STATIC ${ARGN})
  target_include_directories(${target} SYSTEM PUBLIC "${folder}/${include}")
  target_compile_options(${target} PRIVATE -w "-ffile-prefix-map=${folder}=${package}")
endfunction()

tessel_compiled_dependency(dep_pugixml pugixml src src/pugixml.cpp)
target_include_directories(dep_pugixml PRIVATE "${PROJECT_SOURCE_DIR}")
# Nodes of a fifth of the size: a copy of a document stands beside its tree.
target_compile_definitions(dep_pugixml PUBLIC PUGIXML_COMPACT)
if(NOT WIN32)
  tessel_compiled_dependency(dep_jsoncpp libjsoncpp include src/lib_json/json_reader.cpp
    src/lib_json/json_value.cpp src/lib_json/json_writer.cpp)
endif()

if(WIN32)
  # The licence texts of all that the programs and their DLLs are made of.
  execute_process(
    COMMAND "${PROJECT_SOURCE_DIR}/scripts/windows-licences"
    OUTPUT_VARIABLE tessel_licences
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "There are no licences of libraries: scripts/windows-licences says why")
  endif()
  set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    "${PROJECT_SOURCE_DIR}/scripts/windows-licences"
    "${PROJECT_SOURCE_DIR}/scripts/lib/windows-licences.txt")

  # The DLLs that a Windows program needs beside it: AmsJson.dll, and the C++ runtime that it shares with
  # that library.
  set(tessel_dlls "${tessel_windows_libraries}/bin/AmsJson.dll")
  foreach(name IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${name}"
      OUTPUT_VARIABLE place OUTPUT_STRIP_TRAILING_WHITESPACE)
    list(APPEND tessel_dlls "${place}")
  endforeach()
  file(COPY ${tessel_dlls} DESTINATION "${PROJECT_BINARY_DIR}/bin")
  file(COPY ${tessel_dlls} DESTINATION "${PROJECT_BINARY_DIR}/tests")
endif()
