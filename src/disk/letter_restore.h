// Gives the volumes of a converted disk the letters that the caller's record wants.
#pragma once

#include "frame/velkora.h"

namespace velkora {

// Joins the machine's volumes to the record by disk number and start offset, takes away every
// letter that must move in one sweep and assigns the wanted ones in a second. Returns false only if
// the volumes could not be enumerated or a stop was asked for; no letter has been touched then.
// True does not mean that each letter arrived: a letter that cannot be removed or assigned is
// logged (level 3) and passed over, and nothing is retried or given back.
bool RestoreVolumeInfosAfterConvert(const Velkora& converter);

}  // namespace velkora
