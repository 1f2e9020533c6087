#include "semihosting.h"

#include <stdint.h>

enum {
    SYS_WRITE0 = 0x04,
    SYS_GET_CMDLINE = 0x15,
    SYS_EXIT_EXTENDED = 0x20,
};

static const uintptr_t kApplicationExit = 0x20026;

static uintptr_t __request(uintptr_t operation, const void *argument)
{
    register uintptr_t r0 __asm__("r0") = operation;
    register const void *r1 __asm__("r1") = argument;

    __asm__ volatile("bkpt 0xab" : "+r"(r0) : "r"(r1) : "memory");
    return r0;
}

void semihosting_write(const char *text)
{
    __request(SYS_WRITE0, text);
}

int semihosting_command_line(char *line, size_t size)
{
    const struct {
        char *text;
        size_t size;
    } block = {line, size};

    return __request(SYS_GET_CMDLINE, &block) == 0 ? 0 : -1;
}

void semihosting_exit(int status)
{
    const uintptr_t block[] = {kApplicationExit, (uintptr_t)status};

    for (;;) {
        __request(SYS_EXIT_EXTENDED, block);
    }
}
