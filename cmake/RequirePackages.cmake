# require_packages(OPTION NAME:PACKAGE...)
# Finds packages of CMake, and names the Debian package of one that is missing, and the option that does without it.
function(require_packages option)
  foreach(pair IN LISTS ARGN)
    string(REPLACE ":" ";" pair ${pair})
    list(GET pair 0 name)
    list(GET pair 1 package)
    find_package(${name} QUIET)
    if(NOT ${name}_FOUND)
      message(FATAL_ERROR "${name} comes with Debian's package ${package}: apt-get install ${package} "
                          "(or configure with -D${option}=OFF)")
    endif()
  endforeach()
endfunction()
