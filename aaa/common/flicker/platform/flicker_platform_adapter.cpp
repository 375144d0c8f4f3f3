#include "flicker_platform_adapter.h"
