// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
