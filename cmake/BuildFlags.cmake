# What every target of the project is compiled with.
add_library(kybridge_flags INTERFACE)
target_compile_options(kybridge_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(KYBRIDGE_WERROR)
  target_compile_options(kybridge_flags INTERFACE -Werror)
endif()
if(KYBRIDGE_SANITIZE)
  target_compile_options(kybridge_flags INTERFACE -fsanitize=${KYBRIDGE_SANITIZE} -fno-sanitize-recover=all
                                                  -fno-omit-frame-pointer)
  target_link_options(kybridge_flags INTERFACE -fsanitize=${KYBRIDGE_SANITIZE})
endif()
if(KYBRIDGE_COVERAGE)
  target_compile_options(kybridge_flags INTERFACE --coverage -O0)
  target_link_options(kybridge_flags INTERFACE --coverage)
endif()

# For tests, and for what reads a program's arguments: half the time to compile, where a time to run hardly shows.
add_library(kybridge_brief_flags INTERFACE)
target_compile_options(kybridge_brief_flags INTERFACE "$<$<CONFIG:RelWithDebInfo>:-O1;-g1>")
target_link_libraries(kybridge_brief_flags INTERFACE kybridge_flags)

# The same bytes from every folder: what debug information tells of places begins at the top of the sources.
foreach(place ${PROJECT_SOURCE_DIR}=. ${PROJECT_BINARY_DIR}=./build)
  target_compile_options(kybridge_flags INTERFACE -fdebug-prefix-map=${place})
  target_link_options(kybridge_flags INTERFACE -fdebug-prefix-map=${place}) # for what is compiled while it is linked
endforeach()

# Full RELRO, canaries, libc's checks of sizes, and marks for the processor at which a jump or a return may arrive.
# Sanitizers find more, and have their own functions where _FORTIFY_SOURCE puts others.
if(KYBRIDGE_HARDENING AND NOT KYBRIDGE_SANITIZE AND NOT KYBRIDGE_COVERAGE)
  include(CheckCCompilerFlag)
  include(CheckLinkerFlag)
  target_compile_options(kybridge_flags INTERFACE -fstack-protector-strong -fstack-clash-protection)
  if(NOT CMAKE_BUILD_TYPE STREQUAL Debug) # libc checks nothing, and warns of that, where nothing is optimised
    target_compile_options(kybridge_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  target_link_options(kybridge_flags INTERFACE LINKER:-z,relro,-z,now)
  check_c_compiler_flag(-fcf-protection=full has_cf_protection)           # x86
  check_c_compiler_flag(-mbranch-protection=standard has_branch_protection) # aarch64
  if(has_cf_protection)
    # Debian's start-up files are not marked, so the linker leaves the mark out; the shadow stack asks nothing of them.
    check_linker_flag(C LINKER:-z,shstk has_shadow_stack)
    target_compile_options(kybridge_flags INTERFACE -fcf-protection=full)
    target_link_options(kybridge_flags INTERFACE $<$<BOOL:${has_shadow_stack}>:LINKER:-z,shstk>)
  elseif(has_branch_protection)
    target_compile_options(kybridge_flags INTERFACE -mbranch-protection=standard)
  endif()
endif()
