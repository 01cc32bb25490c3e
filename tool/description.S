/* The description as data, orlan_epm.json, inside the tool. */
    .section .rodata
    .globl epm_description
    .hidden epm_description
    .globl epm_description_end
    .hidden epm_description_end
epm_description:
    .incbin EPM_DESCRIPTION
epm_description_end:

    .section .note.GNU-stack,"",@progbits
#ifdef __CET__
#include <cet.h>
#endif
