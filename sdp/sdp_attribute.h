// Attributes of an m=video section.
#pragma once

#include "sdp.h"
#include "sdp_text.h"

// Reads "NAME" or "NAME:VALUE" into the section, parameter sets into the session. Null when it was understood or does
// not matter; else what is wrong.
const char *sdp_attribute_read(sdp_session *session, sdp_video *video, sdp_text attribute);

// Reads the value of an a=crypto (RFC 4568, 9.1). One in a suite that is not known is passed over, as a receiver
// that may choose would. Null, or what is wrong.
const char *sdp_crypto_read(sdp_video *video, sdp_text value);

// Reads a direction attribute. False when it is another attribute.
bool sdp_direction_read(sdp_text attribute, sdp_direction *direction);

// Reads "IN IP4 ADDRESS" or "IN IP6 ADDRESS", with or without the numbers that a multicast address has behind
// slashes. False when it is something else.
bool sdp_address_read(sdp_text value, sdp_address *address);
