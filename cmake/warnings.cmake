# What every target of this project compiles with. KERNEL_WERROR is on in the presets: a warning is an error for those who
# work on the project, and not for those who package it with a compiler that we have not seen.
option(KERNEL_WERROR "Warnings are errors" OFF)

add_library(kernel_warnings INTERFACE)
target_compile_options(kernel_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow $<$<BOOL:${KERNEL_WERROR}>:-Werror>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # A subclass that overrides one overload of the byte operations hides the others on purpose.
    target_compile_options(kernel_warnings INTERFACE -Wno-overloaded-virtual)
endif()
