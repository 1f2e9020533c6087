/* The records' layout as C sees it. */
#include "record_layout.h"

int main(void)
{
    return rtp_bits_failures() + video_type_failures() + list_poison_failures();
}
