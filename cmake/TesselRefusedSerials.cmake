# The publisher's certificates that are refused although they are valid, as the generated header
# refused_serials.h of the target tessel_refused_serials.

include_guard(GLOBAL)

set(TESSEL_REFUSED_SERIALS
  "0d7c41b2a95e6f3380c4d1e27ab95f06;3fa1886c0e5b47d29c713e84b6d02a5f;61e09b4d72cf3a185d86f7ab20c4931e"
  CACHE STRING "Serial numbers of three refused certificates, each of 32 lower-case hex digits")

list(LENGTH TESSEL_REFUSED_SERIALS refused_count)
if(NOT refused_count EQUAL 3)
  message(FATAL_ERROR "TESSEL_REFUSED_SERIALS has ${refused_count} serial numbers, not 3")
endif()
foreach(index RANGE 2)
  list(GET TESSEL_REFUSED_SERIALS ${index} refused_serial_${index})
  string(LENGTH "${refused_serial_${index}}" refused_length)
  if(NOT refused_length EQUAL 32 OR NOT refused_serial_${index} MATCHES "^[0-9a-f]+$")
    message(FATAL_ERROR
      "TESSEL_REFUSED_SERIALS: '${refused_serial_${index}}' isn't 32 lower-case hex digits")
  endif()
endforeach()

set(refused_folder "${PROJECT_BINARY_DIR}/refused-serials")
configure_file("${PROJECT_SOURCE_DIR}/cmake/refused_serials.h.in"
  "${refused_folder}/refused_serials.h" @ONLY)
add_library(tessel_refused_serials INTERFACE)
target_include_directories(tessel_refused_serials INTERFACE "${refused_folder}")
