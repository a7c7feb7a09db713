# See CMakeLists.txt, which passes the variables.
set(work ${BUILD}/package)
set(prefix ${work}/moved)
set(root ${CMAKE_CURRENT_LIST_DIR}/../..)

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "failed (${result}): ${command}")
    endif()
endfunction()

file(REMOVE_RECURSE ${work})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/installed)
file(RENAME ${work}/installed ${prefix})

set(options -G ${GENERATOR} -D CMAKE_CXX_FLAGS=${FLAGS} -D CMAKE_PREFIX_PATH=${prefix})
if(TOOLCHAIN)  # a toolchain looks for packages in its own folders only
    list(APPEND options -D CMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -D gnss-kernel_DIR=${prefix}/${LIBDIR}/cmake/gnss-kernel)
else()
    list(APPEND options -D CMAKE_CXX_COMPILER=${COMPILER})
endif()

# Builds the project in a folder and runs its program with the arguments that follow.
function(try source program)
    run(${CMAKE_COMMAND} -S ${source} -B ${work}/${program} ${options})
    run(${CMAKE_COMMAND} --build ${work}/${program})
    if(NOT TOOLCHAIN OR EMULATOR)
        file(GLOB built ${work}/${program}/${program} ${work}/${program}/${program}.exe)
        run(${EMULATOR} ${built} ${ARGN})
    endif()
endfunction()

try(${CMAKE_CURRENT_LIST_DIR}/outside outside)
try(${root}/host/examples line_counter ${root}/README.md)
if(TOOLCHAIN)
    return()
endif()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
execute_process(COMMAND pkg-config --cflags --libs gnss-kernel OUTPUT_VARIABLE package_flags COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(package_flags UNIX_COMMAND "${package_flags}")
run(${COMPILER} -std=c++20 ${FLAGS} ${CMAKE_CURRENT_LIST_DIR}/outside/outside.cpp -o ${work}/pkg-config-outside
    ${package_flags})
set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
run(${work}/pkg-config-outside)
