# utf8_program(TARGET): on Windows, makes a program's arguments, environment and narrow file names UTF-8, as they are
# elsewhere and in the library, and lets it use long paths.
if(WIN32)
    add_library(utf8_program_manifest OBJECT ${CMAKE_CURRENT_LIST_DIR}/utf8_program.rc)
    set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/utf8_program.rc
                 PROPERTY OBJECT_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/utf8_program.manifest)
endif()

function(utf8_program target)
    if(WIN32)
        target_sources(${target} PRIVATE $<TARGET_OBJECTS:utf8_program_manifest>)
    endif()
endfunction()
