# Makes faults harder to misuse in everything that is built here: addresses are bound before the first call and
# read-only afterwards, nothing on the stack is executed, and calls and returns only land where they should. The target
# `guarded` adds the compiler's and the C library's buffer checks; the Bundle cannot have them, because they are
# imports. Sanitizers check more and conflict with some of this, so sanitized builds go without.
add_library(guarded INTERFACE)
if(EPM_SANITIZE)
    return()
endif()
target_compile_options(guarded INTERFACE -fstack-protector-strong
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)

add_compile_options(-fcf-protection)
# The linker marks a file for CET only when all its parts are marked, and Debian 12's start files are not. Their calls
# and returns are paired, so the shadow stack is safe to request. They have no landing pads, so only the Bundle, which
# is linked without them, gets the other mark.
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack,-z,shstk)
set(EPM_LANDING_PADS -Wl,-z,ibt)
