# Faults in memory end a program where they happen, and do not become somebody's way in. Sanitizers bring checks of their own,
# which these would hide.
option(KERNEL_HARDENING "Compile with the compiler's run-time checks" ON)

if(KERNEL_HARDENING AND NOT KERNEL_SANITIZE)
    include(CheckCXXCompilerFlag)
    set(flags -fstack-protector-strong)
    if(NOT MINGW)  # Windows probes large frames by itself, and g++ 12 fails on its exception tables with the second one
        list(APPEND flags -fcf-protection=full -fstack-clash-protection)
    endif()
    foreach(flag IN LISTS flags)
        string(MAKE_C_IDENTIFIER "KERNEL_HAS${flag}" has)
        check_cxx_compiler_flag("-Werror ${flag}" ${has})
        if(${has})
            add_compile_options(${flag})
        endif()
    endforeach()
    # Checked string and memory calls; the compiler knows sizes only when it optimises.
    add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    if(MINGW)
        add_link_options(-Wl,--dynamicbase,--nxcompat -fstack-protector-strong)
        set(KERNEL_STACK_LIBRARY ssp)  # what the link option brings; who links the decoders' archive needs it, too
    else()
        add_link_options(-Wl,-z,relro,-z,now)  # the tables of addresses are read-only once the program runs
    endif()
endif()
