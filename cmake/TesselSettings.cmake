# Settings of every target: language, compiler launcher, sanitizers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

option(TESSEL_SANITIZE "Build with the address and undefined behaviour sanitizers" OFF)
option(TESSEL_FUZZ "Build the fuzzers, with Clang and the same sanitizers" OFF)

# All checkouts share the compiler cache, so objects don't contain the path of the source folder. A
# debugger finds the sources when it is started there.
find_program(TESSEL_CCACHE ccache)
mark_as_advanced(TESSEL_CCACHE)
if(TESSEL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER
      "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1
      "${TESSEL_CCACHE}")
endif()
add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
# ccache passes the compiler paths relative to the build folder; __FILE__ shall be relative to the root.
file(RELATIVE_PATH way_back "${PROJECT_BINARY_DIR}" "${PROJECT_SOURCE_DIR}/x")
string(REGEX REPLACE "x$" "" way_back "${way_back}")
add_compile_options("-fmacro-prefix-map=${way_back}=")

if(TESSEL_SANITIZE OR TESSEL_FUZZ)
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all)
  add_compile_options(${sanitizers} -fno-omit-frame-pointer)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  add_link_options(${sanitizers})
endif()
if(TESSEL_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(WIN32)
  # Declares Windows 10's interfaces. What an older Windows lacks is looked up at run time.
  add_compile_definitions(UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
  find_program(TESSEL_WINE wine)
  mark_as_advanced(TESSEL_WINE)
  if(TESSEL_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${TESSEL_WINE}")
  endif()
endif()
