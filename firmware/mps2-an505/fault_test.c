/* Commits the fault that its argument names. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "board.h"

/* Not volatile in itself: the compiler must not see what is going to happen. */
static uintptr_t __opaque(uintptr_t value)
{
    __asm__ volatile("" : "+r"(value));
    return value;
}

static void __read(uintptr_t address)
{
    printf("read %08lx\n", (unsigned long)*(volatile uint32_t *)__opaque(address));
}

static void __write(uintptr_t address)
{
    *(volatile uint32_t *)__opaque(address) = 1;
}

static void __call(uintptr_t address)
{
    ((void (*)(void))__opaque(address))();
}

static void __null_read(void)
{
    __read(0);
}

static void __null_write(void)
{
    __write(0x14);
}

static void __null_call(void)
{
    __call(1);
}

static void __wild_read(void)
{
    __read(0xDEADBEE0);
}

static void __wild_write(void)
{
    __write((uintptr_t)__ram_end);
}

static void __beyond_the_heap(void)
{
    __write((uintptr_t)__heap_end);
}

static void __code_write(void)
{
    __write((uintptr_t)__code_start + 0x100);
}

static void __data_execute(void)
{
    static const uint16_t instruction = 0x4770; /* bx lr */
    static uint16_t copy;

    copy = instruction;
    __call((uintptr_t)&copy | 1);
}

static void __arm_state(void)
{
    __call((uintptr_t)__code_start & ~(uintptr_t)1);
}

static void __undefined_instruction(void)
{
    __asm__ volatile("udf #0");
}

static void __division_by_zero(void)
{
    printf("quotient %d\n", 100 / (int)__opaque(0));
}

static void __unexpected_exception(void)
{
    __asm__ volatile("svc #0");
}

__attribute__((noinline)) static unsigned __recurse(unsigned depth, size_t step)
{
    volatile char space[step];

    space[0] = (char)depth;
    space[step - 1] = (char)depth;
    return depth == 0 ? 0u : __recurse(depth - 1, step) + (unsigned)space[0];
}

static void __stack_overflow_in_large_steps(void)
{
    printf("depth %u\n", __recurse(1000000, 4096));
}

static void __stack_overflow_in_small_steps(void)
{
    printf("depth %u\n", __recurse(1000000, 8));
}

static const struct {
    const char *name;
    void (*commit)(void);
} kFaults[] = {
    {"null_read", __null_read},
    {"null_write", __null_write},
    {"null_call", __null_call},
    {"wild_read", __wild_read},
    {"wild_write", __wild_write},
    {"beyond_the_heap", __beyond_the_heap},
    {"code_write", __code_write},
    {"data_execute", __data_execute},
    {"arm_state", __arm_state},
    {"undefined_instruction", __undefined_instruction},
    {"division_by_zero", __division_by_zero},
    {"unexpected_exception", __unexpected_exception},
    {"stack_overflow_in_large_steps", __stack_overflow_in_large_steps},
    {"stack_overflow_in_small_steps", __stack_overflow_in_small_steps},
};

int main(int argc, char **argv)
{
    for (size_t i = 0; i < sizeof(kFaults) / sizeof(kFaults[0]); i++) {
        if (argc == 2 && strcmp(argv[1], kFaults[i].name) == 0) {
            kFaults[i].commit();
            puts("nothing happened");
            return 1;
        }
    }
    puts("usage: fault_test FAULT");
    return 2;
}
