#pragma once
#include "../../../src/files/regular_file.h"
