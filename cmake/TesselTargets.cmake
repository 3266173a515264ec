# The kinds of target. Every file list may be split by platform:
#
#   SOURCES          for both
#   LINUX_SOURCES    for Linux only
#   WINDOWS_SOURCES  for Windows only
#   DEPENDS          targets to link: tessel_<x>, dep_<x>
#
# tessel_library(<name> [OBJECT] SOURCES... [LINUX_SOURCES...] [WINDOWS_SOURCES...] [DEPENDS...])
#   makes the library <name>, by convention tessel_ and the folder. DEPENDS reach its users as well.
#   OBJECT is for code that nothing calls by name, such as commands that register themselves: its
#   objects go into each program or test that names it in its own DEPENDS, and into no other.
#
# tessel_program(<name> SOURCES... [LINUX_SOURCES...] [WINDOWS_SOURCES...] [DEPENDS...])
#   makes <build>/bin/<name>. On Windows the entry point is wmain.
#
# tessel_test(<name> SOURCES... [LINUX_SOURCES...] [WINDOWS_SOURCES...] [DEPENDS...])
#   makes <build>/tests/<name> with GoogleTest and its main(). It runs with the source folder as the
#   current directory. On a platform for which it has no sources there is no such test.
#
# tessel_bench(<name> SOURCES... [LINUX_SOURCES...] [WINDOWS_SOURCES...] [DEPENDS...])
#   makes <build>/bench/<name> with Google Benchmark and its main(), only when asked for.
#
# tessel_test_library(<name> FILE <path> SOURCES... [LINKS...])
#   makes <build>/tests/libraries/<path>, a shared library of the platform's own kind under that very
#   name. It exports its functions with C names, and needs no library but those in LINKS.
#
# tessel_test_program(<name> SOURCES... [LINUX_SOURCES...] [WINDOWS_SOURCES...] [DEPENDS...])
#   makes <build>/tests/libraries/<name>.exe, on both platforms under that name, for tests to start. On
#   Windows the entry point is wmain, and it needs no library of ours.
#
# tessel_fuzz(<name> SOURCES... [MUTATOR...] [DEPENDS...])
#   is for Linux only. In a build with TESSEL_FUZZ it makes the fuzzer <build>/fuzz/<name>, from sources
#   that define libFuzzer's entry points. In any other build it makes the test fuzz_<name>, which hands
#   the same entry points each input that is kept in fuzz/corpus/<name> and fuzz/regressions/<name>.
#   MUTATOR is a source for the fuzzer alone.
#
# The umbrella targets programs, tests, bench and fuzz build all of a kind.

include_guard(GLOBAL)

enable_testing()
add_custom_target(programs)
add_custom_target(tests)
add_custom_target(bench)
add_custom_target(fuzz)

set(tessel_warnings -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(TESSEL_FUZZ)
  # Clang warns of more; the warnings of GCC, which builds the product, are the ones that count.
  list(APPEND tessel_warnings -Wno-error)
endif()

# Sets <out>_sources, <out>_depends and <out>_object in the caller.
function(tessel_parse_sources out)
  cmake_parse_arguments(PARSE_ARGV 1 arg
    "OBJECT" "" "SOURCES;LINUX_SOURCES;WINDOWS_SOURCES;DEPENDS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "${out}: what is '${arg_UNPARSED_ARGUMENTS}'?")
  endif()
  set(sources ${arg_SOURCES})
  if(WIN32)
    list(APPEND sources ${arg_WINDOWS_SOURCES})
  else()
    list(APPEND sources ${arg_LINUX_SOURCES})
  endif()
  set(${out}_sources "${sources}" PARENT_SCOPE)
  set(${out}_depends "${arg_DEPENDS}" PARENT_SCOPE)
  set(${out}_object "${arg_OBJECT}" PARENT_SCOPE)
endfunction()

function(tessel_library name)
  tessel_parse_sources(library ${ARGN})
  if(library_object)
    add_library(${name} OBJECT ${library_sources})
  else()
    add_library(${name} STATIC ${library_sources})
  endif()
  target_compile_options(${name} PRIVATE ${tessel_warnings})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PUBLIC ${library_depends})
endfunction()

function(tessel_executable name folder sources depends)
  add_executable(${name} ${sources})
  target_compile_options(${name} PRIVATE ${tessel_warnings})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${depends})
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${folder}")
  if(WIN32)
    # A script may nest a thousand levels deep, and the default reserve is 1 MiB, an eighth of what
    # Linux gives.
    target_link_options(${name} PRIVATE -Wl,--stack,16777216 -Wl,--no-insert-timestamp)
  endif()
endfunction()

function(tessel_program name)
  tessel_parse_sources(program ${ARGN})
  tessel_executable(${name} bin "${program_sources}" "${program_depends}")
  # The map tells scripts/package whose code is in the program.
  file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/maps")
  target_link_options(${name} PRIVATE "-Wl,-Map,${PROJECT_BINARY_DIR}/maps/${name}.map")
  if(WIN32)
    target_link_options(${name} PRIVATE -municode)
    target_link_libraries(${name} PRIVATE tessel_version)
  elseif(NOT TESSEL_SANITIZE AND NOT TESSEL_FUZZ)
    # The sanitizers find what is thrown by way of the shared runtime.
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
  add_dependencies(programs ${name})
endfunction()

function(tessel_test name)
  tessel_parse_sources(test ${ARGN})
  if(NOT test_sources)
    return()
  endif()
  tessel_executable(${name} tests "${test_sources}" "${test_depends};dep_gtest_main")
  add_dependencies(tests ${name})
  add_test(NAME ${name} COMMAND ${name} WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}")
  set_property(GLOBAL APPEND PROPERTY tessel_tests ${name})
endfunction()

function(tessel_test_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "FILE" "SOURCES;LINKS")
  get_filename_component(file_name "${arg_FILE}" NAME)
  get_filename_component(folder "${arg_FILE}" DIRECTORY)
  set(folder "${PROJECT_BINARY_DIR}/tests/libraries/${folder}")
  add_library(${name} SHARED ${arg_SOURCES})
  target_compile_options(${name} PRIVATE ${tessel_warnings} -fno-exceptions -fno-rtti
    -fno-sanitize=vptr)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${arg_LINKS})
  target_link_options(${name} PRIVATE $<$<PLATFORM_ID:Windows>:-static>)
  get_filename_component(stem "${file_name}" NAME_WLE)
  set_target_properties(${name} PROPERTIES PREFIX "" OUTPUT_NAME "${stem}" SUFFIX ".dll"
    SKIP_BUILD_RPATH ON LIBRARY_OUTPUT_DIRECTORY "${folder}" RUNTIME_OUTPUT_DIRECTORY "${folder}"
    ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/${name}.imports")
  add_dependencies(tests ${name})
endfunction()

function(tessel_test_program name)
  tessel_parse_sources(program ${ARGN})
  tessel_executable(${name} tests/libraries "${program_sources}" "${program_depends}")
  set_target_properties(${name} PROPERTIES SUFFIX ".exe")
  target_link_options(${name} PRIVATE $<$<PLATFORM_ID:Windows>:-static;-municode>)
  add_dependencies(tests ${name})
endfunction()

function(tessel_bench name)
  tessel_parse_sources(bench ${ARGN})
  if(NOT bench_sources)
    return()
  endif()
  tessel_executable(${name} bench "${bench_sources}" "${bench_depends};dep_benchmark_main")
  set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
  add_dependencies(bench ${name})
endfunction()

function(tessel_fuzz name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "MUTATOR" "SOURCES;DEPENDS")
  if(TESSEL_FUZZ)
    tessel_executable(fuzz_${name} fuzz "${arg_SOURCES};${arg_MUTATOR}" "${arg_DEPENDS}")
    set_target_properties(fuzz_${name} PROPERTIES OUTPUT_NAME ${name})
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzz fuzz_${name})
    set_property(GLOBAL APPEND PROPERTY tessel_fuzzers ${name})
  else()
    tessel_test(fuzz_${name} SOURCES ${arg_SOURCES} replay_test.cpp DEPENDS ${arg_DEPENDS})
    target_compile_definitions(fuzz_${name} PRIVATE TESSEL_FUZZ_TARGET="${name}")
  endif()
endfunction()

# Leaves <build>/tests.txt, and <build>/fuzzers.txt, a name a line: a build folder may still hold the
# executables of those that are gone.
function(tessel_write_lists)
  foreach(kind IN ITEMS tests fuzzers)
    get_property(names GLOBAL PROPERTY tessel_${kind})
    list(JOIN names "\n" lines)
    if(lines)
      string(APPEND lines "\n")
    endif()
    file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/${kind}.txt" CONTENT "${lines}" @ONLY)
  endforeach()
endfunction()
