#pragma once
#include "../../../src/output/shm_words.h"
