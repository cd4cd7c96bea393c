# SPDX-License-Identifier: MIT
# What "PROGRAM completion SHELL" prints, installed where the shells look for it. A program under a sanitizer is for tests
# only, and one of another machine cannot be asked.
function(tv_install_completions program)
  if(TV_SANITIZE OR CMAKE_CROSSCOMPILING)
    return()
  endif()
  set(bashPlace bash-completion/completions/${program})
  set(zshPlace zsh/site-functions/_${program})
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr") # where Debian's zsh looks below /usr; site-functions are /usr/local's
    set(zshPlace zsh/vendor-completions/_${program})
  endif()
  set(fishPlace fish/vendor_completions.d/${program}.fish)
  foreach(shell bash zsh fish)
    get_filename_component(folder ${${shell}Place} DIRECTORY)
    set(script ${CMAKE_CURRENT_BINARY_DIR}/completions/${${shell}Place})
    add_custom_command(OUTPUT ${script}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/completions/${folder}
      COMMAND ${program} completion ${shell} > ${script}
      DEPENDS ${program}
      VERBATIM)
    list(APPEND scripts ${script})
    install(FILES ${script} DESTINATION ${CMAKE_INSTALL_DATADIR}/${folder} COMPONENT completions)
  endforeach()
  add_custom_target(${program}_completions ALL DEPENDS ${scripts})
endfunction()
