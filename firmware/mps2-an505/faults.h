/* What becomes of a fault: it is named on the console, and the program ends. */
#ifndef FAULTS_H
#define FAULTS_H

#ifdef __cplusplus
extern "C" {
#endif

/* The exit status of a program that faulted; no test framework uses it. */
enum {
    FAULT_EXIT_STATUS = 70
};

/* The handler of every exception that nobody else handles: prints a line such as
 *   fault: access to memory that is not allowed, address 0x00000004, pc 0x10000abc, lr 0x10000a31
 * and ends the program with FAULT_EXIT_STATUS. */
void fault_handler(void);

/* Gives each kind of fault an exception of its own, and makes a division by zero one. */
void faults_enable(void);

#ifdef __cplusplus
}
#endif

#endif
