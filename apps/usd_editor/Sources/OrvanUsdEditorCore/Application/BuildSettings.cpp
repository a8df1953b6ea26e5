#include "Application/BuildSettings.h"
