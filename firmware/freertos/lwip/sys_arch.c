/* What lwIP's own task wants of an operating system, by FreeRTOS (lwip/sys.h says what each function does). */
#include <lwip/opt.h>
#include <lwip/sys.h>
#include <lwip/tcpip.h>

void sys_init(void)
{
}

u32_t sys_now(void)
{
    return xTaskGetTickCount() * portTICK_PERIOD_MS;
}

err_t sys_mutex_new(sys_mutex_t *mutex)
{
    *mutex = xSemaphoreCreateMutex();
    return *mutex != NULL ? ERR_OK : ERR_MEM;
}

void sys_mutex_lock(sys_mutex_t *mutex)
{
    (void)xSemaphoreTake(*mutex, portMAX_DELAY);
}

void sys_mutex_unlock(sys_mutex_t *mutex)
{
    (void)xSemaphoreGive(*mutex);
}

err_t sys_mbox_new(sys_mbox_t *mailbox, int size)
{
    *mailbox = xQueueCreate((UBaseType_t)size, sizeof(void *));
    return *mailbox != NULL ? ERR_OK : ERR_MEM;
}

void sys_mbox_post(sys_mbox_t *mailbox, void *message)
{
    (void)xQueueSend(*mailbox, &message, portMAX_DELAY);
}

err_t sys_mbox_trypost(sys_mbox_t *mailbox, void *message)
{
    return xQueueSend(*mailbox, &message, 0) == pdTRUE ? ERR_OK : ERR_MEM;
}

/* lwIP waits for 0 milliseconds when it means for ever. */
u32_t sys_arch_mbox_fetch(sys_mbox_t *mailbox, void **message, u32_t timeout)
{
    const TickType_t ticks = timeout != 0 ? pdMS_TO_TICKS(timeout) : portMAX_DELAY;
    return xQueueReceive(*mailbox, message, ticks) == pdTRUE ? 0 : SYS_ARCH_TIMEOUT;
}

sys_thread_t sys_thread_new(const char *name, lwip_thread_fn thread, void *argument, int stack_words, int priority)
{
    TaskHandle_t task = NULL;
    (void)xTaskCreate(thread, name, (configSTACK_DEPTH_TYPE)stack_words, argument, (UBaseType_t)priority, &task);
    return task;
}

sys_prot_t sys_arch_protect(void)
{
    taskENTER_CRITICAL();
    return 0;
}

void sys_arch_unprotect(sys_prot_t before)
{
    (void)before;
    taskEXIT_CRITICAL();
}

/* There is no lock yet while lwIP starts. */
void sys_assert_core_locked(void)
{
    configASSERT(lock_tcpip_core == NULL || xSemaphoreGetMutexHolder(lock_tcpip_core) == xTaskGetCurrentTaskHandle());
}
