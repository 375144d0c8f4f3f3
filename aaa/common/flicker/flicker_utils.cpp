#include "flicker_utils.h"
