/* lwIP's types of an operating system, by FreeRTOS. */
#ifndef SYS_ARCH_H
#define SYS_ARCH_H

#include <FreeRTOS.h>
#include <queue.h>
#include <semphr.h>
#include <task.h>

typedef SemaphoreHandle_t sys_mutex_t;
typedef SemaphoreHandle_t sys_sem_t; /* none is made: with its core locked lwIP waits for nobody */
typedef QueueHandle_t sys_mbox_t;    /* of pointers */
typedef TaskHandle_t sys_thread_t;
typedef int sys_prot_t; /* the kernel counts how deep the protection is */

#define sys_mbox_valid_val(mailbox) ((mailbox) != NULL)
#define sys_mbox_valid(mailbox) sys_mbox_valid_val(*(mailbox))

#endif
