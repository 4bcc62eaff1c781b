#pragma once
#include "../../../src/MIPI_reader/parser/point_packet_layout.h"
