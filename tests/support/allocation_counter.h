// Counts the allocations of the test program.
#pragma once

// Calls of operator new, of every form, since the start of the program.
long AllocationCount();
