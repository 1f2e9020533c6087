#include "api/service.h"

#include <cstring>

#include "session/channel_state.h"

rtc_service *rtc_service_create()
{
    auto *state = static_cast<service_state *>(zeb_malloc_impl_dbg(sizeof(service_state), __func__, __LINE__));
    if (state == nullptr) {
        return nullptr;
    }
    memset(state, 0, sizeof *state);
    rtc_list_init(&state->service.free_user_video_streams);
    rtc_list_init(&state->channels);
    state->service.state = state;
    return &state->service;
}

namespace
{

void channels_free(service_state *state)
{
    list_head *node = list_remove_head(&state->channels.head);
    while (node != nullptr) {
        channel_free(reinterpret_cast<channel_state *>(node));
        node = list_remove_head(&state->channels.head);
    }
}

void pool_free(rtc_list_t *pool)
{
    list_head *node = list_remove_head(&pool->head);
    while (node != nullptr) {
        zeb_free_impl(node);
        node = list_remove_head(&pool->head);
    }
}

} // namespace

void rtc_service_destroy(rtc_service *service)
{
    if (service == nullptr || service->state == nullptr || service_is_in_callback(service)) {
        return;
    }
    service_state *state = service->state;
    channels_free(state);
    pool_free(&service->free_user_video_streams);
    zeb_free_impl(state);
}

zeb_ts_t rtc_service_next_at(const rtc_service *service)
{
    zeb_ts_t next_at = kServiceNever;
    if (service == nullptr || service->state == nullptr) {
        return next_at;
    }
    const list_head *head = &service->state->channels.head;
    for (const list_head *node = head->next; node != head; node = node->next) {
        const zeb_ts_t channel_at = channel_next_at(reinterpret_cast<const channel_state *>(node));
        next_at = channel_at < next_at ? channel_at : next_at;
    }
    return next_at;
}

zeb_ts_t rtc_service_tick(rtc_service *service, const zeb_ts_t *now_p)
{
    zeb_ts_t next_at = *now_p + kServiceTickInterval;
    if (service == nullptr || service->state == nullptr || service_is_in_callback(service)) {
        return next_at;
    }
    list_head *head = &service->state->channels.head;
    for (list_head *node = head->next; node != head; node = node->next) {
        const zeb_ts_t channel_at = channel_tick(reinterpret_cast<channel_state *>(node), now_p);
        next_at = channel_at < next_at ? channel_at : next_at;
    }
    return next_at;
}
