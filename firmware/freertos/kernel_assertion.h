/* What becomes of an assertion of the kernel that does not hold. */
#ifndef KERNEL_ASSERTION_H
#define KERNEL_ASSERTION_H

#ifdef __cplusplus
extern "C" {
#endif

/* Names it on standard error and ends the program with 1. */
void kernel_assertion_failed(const char *file, int line);

#ifdef __cplusplus
}
#endif

#endif
