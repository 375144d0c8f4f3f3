#include "flicker_mgr.h"
