# The warnings that every target of this project compiles without.
add_library(kernel_warnings INTERFACE)
target_compile_options(kernel_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # A subclass that overrides one overload of the byte operations hides the others on purpose.
    target_compile_options(kernel_warnings INTERFACE -Wno-overloaded-virtual)
endif()
