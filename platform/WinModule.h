#pragma once

#include "platform/WinTypes.h"
