# Compiler settings shared by every target of the project.

add_library(qzekit_warnings INTERFACE)
target_compile_options(qzekit_warnings INTERFACE -Wall -Wextra)
if(QZEKIT_WERROR)
  target_compile_options(qzekit_warnings INTERFACE -Werror)
endif()

if(QZEKIT_BUILD_FUZZ)
  # Coverage feedback for libFuzzer reaches into the kit library too.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(QZEKIT_SANITIZE)
  add_compile_options(-fsanitize=${QZEKIT_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QZEKIT_SANITIZE})
endif()

# Plug-ins and test libraries export the component library entry points by
# their plain names; everything else stays hidden.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
