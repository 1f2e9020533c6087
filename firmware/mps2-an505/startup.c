/* From reset to main: stack limit, FPU, memory protection, data, constructors, command line. */
#include <ctype.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>

#include "board.h"
#include "faults.h"
#include "mpu.h"
#include "semihosting.h"

enum {
    COMMAND_LINE_SIZE = 1024, /* bytes */
    ARGUMENTS_MAX = 32,
};

int main(int argc, char **argv);
void initialise_monitor_handles(void); /* of the C library: opens the console */
void __libc_init_array(void);

void Reset_Handler(void);
void SVC_Handler(void);
void PendSV_Handler(void);
void SysTick_Handler(void);
void Ethernet_Handler(void);

typedef void (*vector)(void);

#define EIGHT_FAULTS                                                                                                   \
    fault_handler, fault_handler, fault_handler, fault_handler, fault_handler, fault_handler, fault_handler,           \
        fault_handler

/* The core's own exceptions, then the devices' interrupts. */
__attribute__((section(".vectors"), used, aligned(512))) static const vector kVectors[] = {
    (vector)(uintptr_t)__stack_top,
    Reset_Handler,
    fault_handler, /* NMI */
    fault_handler, /* HardFault */
    fault_handler, /* MemManage */
    fault_handler, /* BusFault */
    fault_handler, /* UsageFault */
    fault_handler, /* SecureFault */
    0,
    0,
    0,
    SVC_Handler,
    fault_handler, /* DebugMonitor */
    0,
    PendSV_Handler,
    SysTick_Handler,
    EIGHT_FAULTS,
    EIGHT_FAULTS,
    EIGHT_FAULTS,
    EIGHT_FAULTS,
    EIGHT_FAULTS,
    EIGHT_FAULTS,
    Ethernet_Handler,
};
_Static_assert(sizeof(kVectors) / sizeof(kVectors[0]) == 16 + ETHERNET_INTERRUPT + 1, "each interrupt has its place");

static void __memory_prepare(void)
{
    memcpy(__data_start, __data_load, (size_t)(__data_end - __data_start));
    memset(__bss_start, 0, (size_t)(__bss_end - __bss_start));
}

/* Cuts `line` at its blanks. Returns the number of words, whose last pointer is followed by a null one. */
static int __split(char *line, char **words)
{
    int count = 0;

    for (char *word = strtok(line, " "); word != NULL && count < ARGUMENTS_MAX; word = strtok(NULL, " ")) {
        words[count++] = word;
    }
    words[count] = NULL;
    return count;
}

static bool __is_assignment(const char *word)
{
    return word != NULL && isalpha((unsigned char)word[0]) && strchr(word, '=') != NULL;
}

/* Words such as NAME=value in front of the arguments go to the environment, as with env(1). */
__attribute__((used, noreturn)) static void __start(void)
{
    static char line[COMMAND_LINE_SIZE];
    static char *words[ARGUMENTS_MAX + 1];
    char **arguments = words;

    __memory_prepare();
    faults_enable();
    mpu_enable();
    initialise_monitor_handles();
    __libc_init_array();

    int count = semihosting_command_line(line, sizeof(line)) == 0 ? __split(line, words) : 0;
    while (count > 1 && __is_assignment(arguments[1])) {
        putenv(arguments[1]);
        arguments[1] = arguments[0];
        arguments++;
        count--;
    }
    exit(main(count, arguments));
}

/* The stack's limit comes before the first push; the FPU before the first function that may use it. */
__attribute__((naked)) void Reset_Handler(void)
{
    __asm__ volatile("ldr r0, =__stack_limit\n\t"
                     "msr msplim, r0\n\t"
                     "ldr r0, =0xE000ED88\n\t" /* CPACR */
                     "ldr r1, [r0]\n\t"
                     "orr r1, r1, #(0xF << 20)\n\t"
                     "str r1, [r0]\n\t"
                     "dsb\n\t"
                     "isb\n\t"
                     "b __start\n\t"
                     ".ltorg");
}
