#include "support/precompiled.h"
