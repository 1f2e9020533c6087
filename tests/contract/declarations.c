/* One header declares all that crosses the module's boundary, as C reads it. */
#include "video_stream.h"

#include "contract_declarations.inc"
