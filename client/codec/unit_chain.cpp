#include "codec/unit_chain.h"

#include "codec/annexb.h"

namespace
{

bool fits_behind(const unit_chain *self, const nal_payload *payload)
{
    const bool goes_on = payload->kind == NAL_PAYLOAD_FRAGMENT && !payload->is_start;
    return self->is_open ? goes_on && payload->type == self->type : !goes_on;
}

} // namespace

payload_fault_e unit_chain_note(unit_chain *self, uint8_t codec, const uint8_t *payload, size_t size)
{
    const nal_format *format = nal_format_of(codec);
    if (format == nullptr || payload == nullptr || size == 0) {
        return PAYLOAD_FAULTS;
    }
    const nal_payload parsed = format->payload_parse({payload, size});
    const nal_contents contents = nal_contents_inspect(format, &parsed);
    if (contents.fault != PAYLOAD_FAULTS) {
        return contents.fault;
    }
    if (!fits_behind(self, &parsed)) {
        return PAYLOAD_FAULT_BROKEN_FRAGMENT;
    }
    self->is_open = parsed.kind == NAL_PAYLOAD_FRAGMENT && !parsed.is_end;
    self->type = parsed.type;
    return annexb_room_missing(&contents, size) == 0 ? PAYLOAD_FAULTS : PAYLOAD_FAULT_NO_ROOM;
}

payload_fault_e unit_chain_end(const unit_chain *self)
{
    return self->is_open ? PAYLOAD_FAULT_BROKEN_FRAGMENT : PAYLOAD_FAULTS;
}
