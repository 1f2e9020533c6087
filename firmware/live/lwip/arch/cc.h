/* What lwIP wants to know of compiler and board. */
#ifndef CC_H
#define CC_H

#include <stdio.h>
#include <stdlib.h>

#define LWIP_PLATFORM_DIAG(message)                                                                                    \
    do {                                                                                                               \
        printf message;                                                                                                \
    } while (0)

#define LWIP_PLATFORM_ASSERT(message)                                                                                  \
    do {                                                                                                               \
        printf("lwip: %s\n", message);                                                                                 \
        abort();                                                                                                       \
    } while (0)

#endif
