/* Requests to the debugger or emulator that the board runs under: its files, its console, and the end of the program.
 * The C library's files go the same way; these calls need nothing of it. */
#ifndef SEMIHOSTING_H
#define SEMIHOSTING_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Writes a string to the console. */
void semihosting_write(const char *text);

/* Fills `line`, `size` bytes, with the command line, the image's name first. Returns
 *   0   done
 *   -1  there is none, or it does not fit. */
int semihosting_command_line(char *line, size_t size);

/* Ends the program at once, with the status that the emulator exits with. */
void semihosting_exit(int status);

#ifdef __cplusplus
}
#endif

#endif
