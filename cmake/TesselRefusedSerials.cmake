# The publisher's certificates that are refused although they are valid, as the generated header
# refused_serials.h of the target tessel_refused_serials.

include_guard(GLOBAL)

set(TESSEL_REFUSED_SERIALS
  "0d7c41b2a95e6f3380c4d1e27ab95f06;3fa1886c0e5b47d29c713e84b6d02a5f;61e09b4d72cf3a185d86f7ab20c4931e"
  CACHE STRING "Serial numbers of three refused certificates, in hex digits")

list(LENGTH TESSEL_REFUSED_SERIALS refused_count)
if(NOT refused_count EQUAL 3)
  message(FATAL_ERROR "TESSEL_REFUSED_SERIALS has ${refused_count} serial numbers, not 3")
endif()
foreach(index RANGE 2)
  list(GET TESSEL_REFUSED_SERIALS ${index} refused_serial_${index})
  # Positive, and of 20 bytes at most (RFC 5280, 4.1.2.2).
  string(TOLOWER "${refused_serial_${index}}" refused_serial_${index})
  string(REGEX REPLACE "^0+" "" refused_number "${refused_serial_${index}}")
  string(LENGTH "${refused_number}" refused_length)
  if(refused_length GREATER 40 OR NOT refused_number MATCHES "^[0-9a-f]+$")
    message(FATAL_ERROR "TESSEL_REFUSED_SERIALS: '${refused_serial_${index}}' is no serial number: "
      "1 to 40 hex digits, and not zero")
  endif()
endforeach()

set(refused_folder "${PROJECT_BINARY_DIR}/refused-serials")
configure_file("${PROJECT_SOURCE_DIR}/cmake/refused_serials.h.in"
  "${refused_folder}/refused_serials.h" @ONLY)
add_library(tessel_refused_serials INTERFACE)
target_include_directories(tessel_refused_serials INTERFACE "${refused_folder}")
