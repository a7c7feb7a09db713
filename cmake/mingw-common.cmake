set(CMAKE_C_COMPILER ${KERNEL_MINGW}-gcc-posix)  # GoogleTest asks for one
set(CMAKE_CXX_COMPILER ${KERNEL_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${KERNEL_MINGW}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KERNEL_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The runtime of the compiler goes into each program, so that a program needs nothing but the kernel library beside it.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")
