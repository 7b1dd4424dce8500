/* Builds the NPAPI declarations as C, so that they stay usable from C
 * and their layout checks also run in a C compiler. */
#include "npfunctions.h"

size_t corvaneNpapiBrowserTableSize(void);

size_t corvaneNpapiBrowserTableSize(void) {
    NPVariant variant;
    STRINGZ_TO_NPVARIANT("checked", variant);
    return NPVARIANT_IS_STRING(variant) ? sizeof(NPNetscapeFuncs) : 0;
}
