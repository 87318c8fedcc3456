// Where translation marks look their texts up. The stores register themselves; without them each mark gives
// its default. The result is owned; null means "no such entry".
#pragma once

#include "ipe/object/ipe_type.h"

struct IPE_TranslationSource {
    // The text for a key, from the storage dictionary "language" of the thread, or the process when it has
    // none.
    IPE_Object (*lookup)(const IPE_Object& key) = nullptr;
    // Notes a missing key with its default in "language_missing", if the storage has that dictionary.
    void (*missing)(const IPE_Object& key, const IPE_Object& text) = nullptr;
};
void IPE_SetTranslationSource(IPE_TranslationSource source);
