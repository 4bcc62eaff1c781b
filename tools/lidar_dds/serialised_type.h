// A DDS type whose samples are messages that are serialised already.
//
// With the middleware's own types a program fills in records and the middleware serialises them.
// Here the bytes are made by the serialiser that the recorder uses too, and go out as they are.
// Only for writers: nothing of this type can be read.
#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <span>

struct ddsi_sertype;
struct ddsi_serdata;

namespace kerul::lidar::dds {

// A type of this name, without key. The caller owns it until dds_create_topic_sertype has taken it,
// else gives it to ddsi_sertype_unref.
ddsi_sertype* MakeSerialisedType(const char* dds_name);

// A sample for dds_writecdr, which takes it. Copies the message: four bytes of encapsulation, then
// CDR. `type` is the one that the topic has.
ddsi_serdata* MakeSample(const ddsi_sertype* type, std::span<const std::uint8_t> message);

}  // namespace kerul::lidar::dds
