# The public key that patches are checked with, as the generated header patch_key.h behind the target
# tessel_patch_key.
#
# TESSEL_PUBLIC_KEY names a PEM file ("BEGIN PUBLIC KEY", RSA, 2048 bits). Without it a development
# pair in <build>/dev-keys is used. The build folders of a checkout share one pair, so that a patch
# packed for one of them runs in all. The header has the text scrambled: no byte of it is ASCII, so a
# search of the program for text doesn't find the key.

include_guard(GLOBAL)

set(TESSEL_PUBLIC_KEY "" CACHE FILEPATH
  "PEM file of the public key for patches (RSA 2048); empty for a development pair")

# The size of the buffer for the unscrambled key and its closing zero.
set(patch_key_buffer_size 462)

find_program(TESSEL_OPENSSL openssl)
mark_as_advanced(TESSEL_OPENSSL)
if(NOT TESSEL_OPENSSL)
  message(FATAL_ERROR "The openssl tool wasn't found: install openssl")
endif()

function(tessel_openssl)
  execute_process(COMMAND "${TESSEL_OPENSSL}" ${ARGN} RESULT_VARIABLE result ERROR_VARIABLE noise
    OUTPUT_VARIABLE noise)
  if(NOT result EQUAL 0)
    string(STRIP "${noise}" noise)
    message(FATAL_ERROR "openssl ${ARGV0} failed: ${noise}")
  endif()
endfunction()

# Makes sure that folder/private.pem and folder/public.pem are there.
function(tessel_make_development_pair folder)
  cmake_path(GET PROJECT_BINARY_DIR PARENT_PATH root)
  set(is_shared_root FALSE)
  if(root STREQUAL "${PROJECT_SOURCE_DIR}/build")
    set(is_shared_root TRUE)
    # Two concurrent configure runs must not make two pairs.
    file(LOCK "${root}/dev-keys.lock" GUARD FUNCTION TIMEOUT 60)
  endif()
  if(EXISTS "${folder}/private.pem" AND EXISTS "${folder}/public.pem")
    return()
  endif()

  # Renamed when complete: an interrupted run leaves no half of a pair.
  file(REMOVE_RECURSE "${folder}" "${folder}.new")
  file(MAKE_DIRECTORY "${folder}.new")
  set(siblings "")
  if(is_shared_root)
    file(GLOB siblings "${root}/*/dev-keys/private.pem")
  endif()
  foreach(sibling IN LISTS siblings)
    cmake_path(GET sibling PARENT_PATH sibling_folder)
    if(EXISTS "${sibling_folder}/public.pem")
      file(COPY "${sibling}" "${sibling_folder}/public.pem" DESTINATION "${folder}.new")
      file(CHMOD "${folder}.new/private.pem" FILE_PERMISSIONS OWNER_READ OWNER_WRITE)
      file(RENAME "${folder}.new" "${folder}")
      return()
    endif()
  endforeach()
  tessel_openssl(genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:2048
    -out "${folder}.new/private.pem")
  file(CHMOD "${folder}.new/private.pem" FILE_PERMISSIONS OWNER_READ OWNER_WRITE)
  tessel_openssl(pkey -in "${folder}.new/private.pem" -pubout -out "${folder}.new/public.pem")
  file(RENAME "${folder}.new" "${folder}")
endfunction()

# Sets out to the key's PEM text, with line feeds only and nothing before or after it.
function(tessel_read_public_key path out)
  if(NOT EXISTS "${path}" OR IS_DIRECTORY "${path}")
    message(FATAL_ERROR "TESSEL_PUBLIC_KEY: there is no file ${path}")
  endif()
  file(READ "${path}" text)
  string(REPLACE "\r\n" "\n" text "${text}")
  if(NOT text MATCHES "(-----BEGIN PUBLIC KEY-----\n[A-Za-z0-9+/=\n]+\n-----END PUBLIC KEY-----)")
    message(FATAL_ERROR "TESSEL_PUBLIC_KEY: ${path} has no PEM text 'BEGIN PUBLIC KEY'")
  endif()
  set(text "${CMAKE_MATCH_1}\n")

  execute_process(COMMAND "${TESSEL_OPENSSL}" pkey -pubin -in "${path}" -noout -text
    RESULT_VARIABLE result OUTPUT_VARIABLE description ERROR_QUIET)
  # openssl describes an RSA-PSS key, which can't decrypt a patch, in the same words. The identifier
  # from the seventh byte on tells them apart.
  string(REPLACE "\n" "" joined "${CMAKE_MATCH_1}")
  if(NOT result EQUAL 0
     OR NOT description MATCHES "^Public-Key: \\(2048 bit\\)"
     OR NOT joined MATCHES "^-----BEGIN PUBLIC KEY-----........BgkqhkiG9w0BAQEF")
    message(FATAL_ERROR "TESSEL_PUBLIC_KEY: ${path} isn't an RSA key of 2048 bits")
  endif()
  string(LENGTH "${text}" length)
  math(EXPR longest "${patch_key_buffer_size} - 1")
  if(length GREATER longest)
    message(FATAL_ERROR
      "TESSEL_PUBLIC_KEY: ${path} has ${length} bytes of text, and ${longest} is the most")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# Writes the header, unless it is up to date.
function(tessel_write_patch_key text header)
  string(HEX "${text}" hex)
  # The zero byte is the end mark.
  string(APPEND hex "00")
  string(REGEX MATCHALL ".." bytes "${hex}")
  set(lines "")
  set(line "   ")
  set(position 0)
  foreach(byte IN LISTS bytes)
    # Must agree with PatchKeyMask in the header.
    math(EXPR scrambled
      "0x${byte} ^ (128 | ((${position} * 89 + (${position} >> 4) * 23 + 51) & 127))")
    string(APPEND line " ${scrambled},")
    math(EXPR position "${position} + 1")
    math(EXPR column "${position} % 16")
    if(column EQUAL 0)
      string(APPEND lines "${line}\n")
      set(line "   ")
    endif()
  endforeach()
  string(APPEND lines "${line}")
  set(PATCH_KEY_BYTES "${lines}")
  set(PATCH_KEY_BUFFER_SIZE "${patch_key_buffer_size}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/patch_key.h.in" "${header}" @ONLY)
endfunction()

if(TESSEL_PUBLIC_KEY)
  set(public_key "${TESSEL_PUBLIC_KEY}")
  message(STATUS "Patch key: ${public_key}")
else()
  tessel_make_development_pair("${PROJECT_BINARY_DIR}/dev-keys")
  set(public_key "${PROJECT_BINARY_DIR}/dev-keys/public.pem")
  message(STATUS "Patch key: development pair in ${PROJECT_BINARY_DIR}/dev-keys "
    "(TESSEL_PUBLIC_KEY sets another)")
endif()
set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  "${public_key}")
tessel_read_public_key("${public_key}" patch_key_text)
tessel_write_patch_key("${patch_key_text}" "${PROJECT_BINARY_DIR}/generated/patch_key.h")

add_library(tessel_patch_key INTERFACE)
target_include_directories(tessel_patch_key INTERFACE "${PROJECT_BINARY_DIR}/generated")

# <build>/patch-key.txt goes with an installation: which key it has, without the key's text.
set(key_digest_file "${PROJECT_BINARY_DIR}/generated/patch_key.der")
tessel_openssl(pkey -pubin -in "${public_key}" -outform DER -out "${key_digest_file}")
file(SHA256 "${key_digest_file}" key_digest)
if(TESSEL_PUBLIC_KEY)
  set(key_text "These programs run patches made with the private half of the key whose digest is below.
The digest is that of 'openssl pkey -pubin -in PUB.pem -outform DER | sha256sum'.

sha256:${key_digest}
")
else()
  set(key_text "These programs have a DEVELOPMENT KEY: they are for trying only. They run patches made with the private
half of the key whose digest is below, which is in the build folder that they come from, and those of
nobody else. Whoever has that file can make patches that they run.

development sha256:${key_digest}
")
endif()
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/patch-key.txt" CONTENT "${key_text}" @ONLY)
