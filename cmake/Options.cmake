# Warnings, sanitizers and definitions shared by every target of ours.

add_library(quillbeam_options INTERFACE)
target_compile_options(quillbeam_options INTERFACE -Wall -Wextra -Werror -Wnon-virtual-dtor
                       -Woverloaded-virtual -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(quillbeam_options INTERFACE -Wthread-safety -Wshadow-uncaptured-local)
else()
  # g++ 12 sees dangling and uninitialised things in coroutine frames, and overlaps in string concatenation, that are
  # not there.
  target_compile_options(quillbeam_options INTERFACE -Wno-maybe-uninitialized -Wno-dangling-pointer -Wno-restrict)
endif()

set(QUILLBEAM_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")
if(QUILLBEAM_SANITIZE)
  add_compile_options(-fsanitize=${QUILLBEAM_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUILLBEAM_SANITIZE})
  if(QUILLBEAM_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
endif()

if(QUILLBEAM_FUZZERS)
  # So that the fuzzers see which branches of the rooms they reached.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
