#pragma once
#include "../../../src/config/transform_param.h"
