#include "source/source.h"

#include <iostream>

namespace kerul::lidar {

std::string Source::GetType() { return "NONE"; }

Source::~Source() { Source::Close(); }

void Source::Close() { std::cout << "Source::Close()\n"; }

bool Source::IsOpened() { return false; }

}  // namespace kerul::lidar
