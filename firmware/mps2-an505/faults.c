#include "faults.h"

#include <stdbool.h>
#include <stddef.h>

#include "board.h"
#include "semihosting.h"

#define SCB_CCR REGISTER(0xE000ED14)
#define SCB_SHCSR REGISTER(0xE000ED24)
#define SCB_CFSR REGISTER(0xE000ED28)
#define SCB_HFSR REGISTER(0xE000ED2C)
#define SCB_MMFAR REGISTER(0xE000ED34)
#define SCB_BFAR REGISTER(0xE000ED38)
#define SAU_SFSR REGISTER(0xE000EDE4)

static const uint32_t kTrapDivisionByZero = 1u << 4;
static const uint32_t kFaultsEnable = 0xFu << 16; /* MemManage, BusFault, UsageFault, SecureFault */

static const uint32_t kMmfarValid = 1u << 7;
static const uint32_t kBfarValid = 1u << 15;
/* The registers could not be stored: the place where they were to be is not theirs. */
static const uint32_t kNotStacked = 1u << 4 | 1u << 12;

/* What the bits of SCB_CFSR say. */
static const struct {
    uint32_t bit;
    const char *name;
} kCauses[] = {
    {1u << 20, "stack overflow"},
    {1u << 0, "execution of memory that is not code"},
    {1u << 1, "access to memory that is not allowed"},
    {1u << 3, "memory not allowed while leaving an exception"},
    {1u << 4, "memory not allowed while entering an exception"},
    {1u << 5, "memory not allowed while saving the FPU"},
    {1u << 8, "bus error at an instruction"},
    {1u << 9, "bus error"},
    {1u << 10, "bus error of an earlier write"},
    {1u << 11, "bus error while leaving an exception"},
    {1u << 12, "bus error while entering an exception"},
    {1u << 13, "bus error while saving the FPU"},
    {1u << 16, "undefined instruction"},
    {1u << 17, "jump to an address without the Thumb bit"},
    {1u << 18, "bad return from an exception"},
    {1u << 19, "coprocessor that is not there"},
    {1u << 24, "unaligned access"},
    {1u << 25, "division by zero"},
};

/* What the core stores of the interrupted program. */
struct exception_frame {
    uint32_t r0, r1, r2, r3, r12, lr, pc, xpsr;
};

/* The program's own stack may be what the fault is about. */
enum {
    FAULT_STACK_SIZE = 1024 /* bytes */
};
__attribute__((used, aligned(8))) char g_fault_stack[FAULT_STACK_SIZE];

void fault_report(const struct exception_frame *frame, const void *stack_limit);

/* For a kernel or a driver to replace. Without one they are faults. */
__attribute__((weak, alias("fault_handler"))) void SVC_Handler(void);
__attribute__((weak, alias("fault_handler"))) void PendSV_Handler(void);
__attribute__((weak, alias("fault_handler"))) void SysTick_Handler(void);
__attribute__((weak, alias("fault_handler"))) void Ethernet_Handler(void);

void faults_enable(void)
{
    SCB_SHCSR |= kFaultsEnable;
    SCB_CCR |= kTrapDivisionByZero;
}

static void __write_number(const char *name, uint32_t value)
{
    char digits[] = " 0x00000000";
    char *digit = &digits[sizeof(digits) - 2];

    for (; value != 0; value >>= 4) {
        *digit-- = "0123456789abcdef"[value & 0xF];
    }
    semihosting_write(name);
    semihosting_write(digits);
}

static uint32_t __exception_number(void)
{
    uint32_t number;

    __asm__ volatile("mrs %0, ipsr" : "=r"(number));
    return number;
}

/* Without a cause it is no fault but an exception that nobody expected. */
static void __write_causes(uint32_t causes)
{
    const char *separator = "fault: ";

    for (size_t i = 0; i < sizeof(kCauses) / sizeof(kCauses[0]); i++) {
        if ((causes & kCauses[i].bit) != 0) {
            semihosting_write(separator);
            semihosting_write(kCauses[i].name);
            separator = ", ";
        }
    }
    if (SAU_SFSR != 0) {
        __write_number("fault: violation of the secure state, SFSR", SAU_SFSR);
    } else if (causes == 0) {
        __write_number("fault: unexpected exception", __exception_number());
        __write_number(", HFSR", SCB_HFSR);
    }
}

static void __write_address(uint32_t causes)
{
    if ((causes & kMmfarValid) != 0) {
        __write_number(", address", SCB_MMFAR);
    } else if ((causes & kBfarValid) != 0) {
        __write_number(", address", SCB_BFAR);
    }
}

/* Where there was no room for the registers, the stack pointer stands on its limit. */
static bool __is_stacked(const struct exception_frame *frame, const void *stack_limit, uint32_t causes)
{
    return (const void *)frame != stack_limit && (causes & kNotStacked) == 0;
}

/* Called from the handler, on the fault stack. */
__attribute__((used)) void fault_report(const struct exception_frame *frame, const void *stack_limit)
{
    const uint32_t causes = SCB_CFSR;

    __write_causes(causes);
    __write_address(causes);
    if (__is_stacked(frame, stack_limit, causes)) {
        __write_number(", pc", frame->pc);
        __write_number(", lr", frame->lr);
    } else {
        semihosting_write(", pc not stored");
    }
    semihosting_write("\n");
    semihosting_exit(FAULT_EXIT_STATUS);
}

/* Leaves the stack of the program, which may be full, before it calls anything. */
__attribute__((naked)) void fault_handler(void)
{
    __asm__ volatile("tst lr, #4\n\t"
                     "itete eq\n\t"
                     "mrseq r0, msp\n\t"
                     "mrsne r0, psp\n\t"
                     "mrseq r1, msplim\n\t"
                     "mrsne r1, psplim\n\t"
                     "movs r2, #0\n\t"
                     "msr msplim, r2\n\t"
                     "ldr r2, =g_fault_stack + %c0\n\t"
                     "msr msp, r2\n\t"
                     "b fault_report\n\t"
                     ".ltorg"
                     :
                     : "i"(FAULT_STACK_SIZE));
}
