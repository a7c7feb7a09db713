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

# A driver whose own library is not where the system looks.
add_library(driver_need SHARED services/test_driver_need.cpp)
set_target_properties(driver_need PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/elsewhere
                                             RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/elsewhere)
add_library(driver_needy MODULE services/test_driver_need.cpp)
target_compile_definitions(driver_needy PRIVATE NEEDY)
target_link_libraries(driver_needy PRIVATE driver_need)
set_target_properties(driver_needy PROPERTIES PREFIX "" SKIP_BUILD_RPATH ON)
target_compile_definitions(platform_library_test PRIVATE DRIVER_NEEDY="$<TARGET_FILE:driver_needy>")
add_dependencies(platform_library_test driver_needy)

# A driver and its host share the library: this test links it, as hosts do, and not the archive.
set_target_properties(LoadDriverLibary_test PROPERTIES LINK_LIBRARIES "")
target_link_libraries(LoadDriverLibary_test PRIVATE kernel_warnings gnss-kernel gtest_main)
target_compile_definitions(LoadDriverLibary_test PRIVATE KERNEL_TEST_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data"
                                                         NMEA_DRIVER="$<TARGET_FILE:nmea_driver>"
                                                         RTCM3_DRIVER="$<TARGET_FILE:rtcm3_driver>")
add_dependencies(LoadDriverLibary_test nmea_driver rtcm3_driver)

# The library as others load it, and the texts that it ships.
target_compile_definitions(resource_strings_test PRIVATE KERNEL_LIBRARY="$<TARGET_FILE:gnss-kernel>"
                                                         DECODER_DAT="${PROJECT_SOURCE_DIR}/host/decoders/decoder.dat")
add_dependencies(resource_strings_test gnss-kernel)
