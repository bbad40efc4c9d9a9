#include "tovlog.h"
