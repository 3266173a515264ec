# The version of the CMake project, which is that of all programs, as the generated header version.h
# behind the target tessel_version.

include_guard(GLOBAL)

set(version_folder "${PROJECT_BINARY_DIR}/version")
configure_file("${PROJECT_SOURCE_DIR}/cmake/version.h.in" "${version_folder}/version.h" @ONLY)
add_library(tessel_version INTERFACE)
target_include_directories(tessel_version INTERFACE "${version_folder}")
