/* Where programs begin: a landing pad for the loader's jump, which the compiler puts here, in front of the C library's
 * own beginning, which has none. */
void _start(void);
__attribute__((naked, noreturn)) void program_start(void);

void program_start(void) {
    __asm__("jmp _start");
}
