# The driver libraries that tests load: one source, and a kind for each way in which a driver answers.
foreach(kind good null no_entry throws)
    add_library(driver_${kind} MODULE services/test_driver.cpp)
    string(TOUPPER ${kind} KIND)
    target_compile_definitions(driver_${kind} PRIVATE DRIVER_${KIND})
    target_link_libraries(driver_${kind} PRIVATE kernel_warnings gnss-kernel)
    set_target_properties(driver_${kind} PROPERTIES PREFIX "")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
        target_compile_options(driver_${kind} PRIVATE -fno-gnu-unique)  # else they are never unloaded
    endif()
    foreach(test LoadDriverLibary_test platform_library_test)
        target_compile_definitions(${test} PRIVATE DRIVER_${KIND}="$<TARGET_FILE:driver_${kind}>")
        add_dependencies(${test} driver_${kind})
    endforeach()
endforeach()

# A driver and its host share the library: this test links it, as hosts do, and not the archive.
set_target_properties(LoadDriverLibary_test PROPERTIES LINK_LIBRARIES "")
target_link_libraries(LoadDriverLibary_test PRIVATE kernel_warnings gnss-kernel gtest_main)

# The library as others load it, and the texts that it ships.
target_compile_definitions(resource_strings_test PRIVATE KERNEL_LIBRARY="$<TARGET_FILE:gnss-kernel>"
                                                         DECODER_DAT="${PROJECT_SOURCE_DIR}/host/decoders/decoder.dat")
add_dependencies(resource_strings_test gnss-kernel)
