/* What the C library wants of the board beyond semihosting. */
#include <errno.h>
#include <stddef.h>
#include <sys/stat.h>
#include <unistd.h>

#include "board.h"

void *_sbrk(ptrdiff_t increment);
int getentropy(void *buffer, size_t size);
extern void *__dso_handle;
void _init(void);
void _fini(void);

/* The heap is the whole of its memory. */
void *_sbrk(ptrdiff_t increment)
{
    static char *end = __heap_start;
    char *const begin = end;

    if (increment > __heap_end - end || increment < __heap_start - end) {
        errno = ENOMEM;
        return (void *)-1;
    }
    end += increment;
    return begin;
}

/* There are no shared objects. */
void *__dso_handle = NULL;

/* Constructors and destructors are in tables; these are what older tool chains had in their place. */
void _init(void)
{
}

void _fini(void)
{
}

/* Nothing on the board is random. */
int getentropy(void *buffer, size_t size)
{
    (void)buffer;
    (void)size;
    errno = ENOSYS;
    return -1;
}

/* Names of files are the host's, and used as they are. */
char *getcwd(char *buffer, size_t size)
{
    if (size < 2) {
        errno = ERANGE;
        return NULL;
    }
    buffer[0] = '/';
    buffer[1] = '\0';
    return buffer;
}

int mkdir(const char *path, mode_t mode)
{
    (void)path;
    (void)mode;
    errno = ENOSYS;
    return -1;
}
