# What `cmake --install` puts below a prefix, which is also what the packages of scripts/package hold.
#
#                       Linux                                       Windows
#   programs            bin/                                        the prefix, with their DLLs
#   manual pages        share/man/
#   completions         share/bash-completion/, zsh/, fish/
#   schemas             share/tessel/schemas/                       docs/
#   Ansible collection  share/tessel/ansible/
#   documents           share/doc/tessel/                           the prefix and docs/
#   licences                                                        licences/
#
# The folders on Linux are those of GNUInstallDirs, so CMAKE_INSTALL_BINDIR and the like change them.
# TESSEL_ZSH_COMPLETIONS is where zsh looks for completions: Debian's own packages put theirs elsewhere.

include_guard(GLOBAL)

if(WIN32)
  set(CMAKE_INSTALL_BINDIR "." CACHE PATH "Programs")
  set(CMAKE_INSTALL_DOCDIR "." CACHE PATH "Documents")
endif()
include(GNUInstallDirs)
set(TESSEL_ZSH_COMPLETIONS "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" CACHE STRING
  "Where completions for zsh are installed")

install(TARGETS tessel tlx RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")

set(documents "${CMAKE_INSTALL_DOCDIR}")
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE "${PROJECT_BINARY_DIR}/patch-key.txt"
  DESTINATION "${documents}")
install(DIRECTORY docs/ DESTINATION "${documents}/docs")
install(PROGRAMS scripts/lib/certificates DESTINATION "${documents}/docs/samples")

if(WIN32)
  install(FILES ${tessel_dlls} DESTINATION "${CMAKE_INSTALL_BINDIR}")
  install(DIRECTORY "${tessel_licences}/" DESTINATION licences)
  return()
endif()

# The manual and the completions, printed by the tool itself. Windows has neither.
set(manual "${PROJECT_BINARY_DIR}/manual")
set(completions "${PROJECT_BINARY_DIR}/completions")
add_custom_command(OUTPUT "${manual}/.made"
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${manual}" "${completions}"
  COMMAND "${CMAKE_COMMAND}" -E make_directory "${manual}" "${completions}"
  COMMAND tlx man --out "${manual}"
  COMMAND tlx completion bash > "${completions}/tlx.bash"
  COMMAND tlx completion zsh > "${completions}/_tlx"
  COMMAND tlx completion fish > "${completions}/tlx.fish"
  COMMAND "${CMAKE_COMMAND}" -E touch "${manual}/.made"
  DEPENDS tlx
  COMMENT "Printing the manual and the completions"
  VERBATIM)
add_custom_target(manual DEPENDS "${manual}/.made")
add_dependencies(programs manual)

foreach(section IN ITEMS 1 5)
  install(DIRECTORY "${manual}/" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}"
    FILES_MATCHING PATTERN "*.${section}")
endforeach()

# Each shell looks for the completions of a program by its name.
set(bash_completions "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
set(fish_completions "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
install(FILES "${completions}/_tlx" DESTINATION "${TESSEL_ZSH_COMPLETIONS}")
foreach(program IN ITEMS tlx tessel)
  install(FILES "${completions}/tlx.bash" DESTINATION "${bash_completions}" RENAME ${program})
  install(FILES "${completions}/tlx.fish" DESTINATION "${fish_completions}" RENAME ${program}.fish)
endforeach()

# Editors and others use the schemas, and a system may be without its documents.
file(GLOB schemas CONFIGURE_DEPENDS docs/*.xsd docs/*.schema.json)
install(FILES ${schemas} DESTINATION "${CMAKE_INSTALL_DATADIR}/tessel/schemas")

# The sources of the Ansible collection, from which ansible-galaxy builds it.
install(DIRECTORY integrations/ansible DESTINATION "${CMAKE_INSTALL_DATADIR}/tessel"
  PATTERN LICENSE EXCLUDE PATTERN __pycache__ EXCLUDE)
install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DATADIR}/tessel/ansible")
