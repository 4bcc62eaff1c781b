// The fields of each record in the order in which they stand in a file: the one list for writing
// and reading.
#pragma once

#include <concepts>
#include <type_traits>

#include "mcap/records.h"

namespace kerul::lidar::mcap {

// A record that is written or one that is filled.
template <class Record, class Kind>
concept IsA = std::same_as<std::remove_const_t<Record>, Kind>;

// Each hands all fields to `visit`, one after the other.
template <IsA<Header> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.profile);
  visit(record.library);
}

template <IsA<Footer> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.summary_start);
  visit(record.summary_offset_start);
  visit(record.summary_crc);
}

template <IsA<Schema> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.id);
  visit(record.name);
  visit(record.encoding);
  visit(record.data);
}

template <IsA<Channel> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.id);
  visit(record.schema_id);
  visit(record.topic);
  visit(record.message_encoding);
  visit(record.metadata);
}

template <IsA<MessageHeader> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.channel_id);
  visit(record.sequence);
  visit(record.log_time_ns);
  visit(record.publish_time_ns);
}

template <IsA<ChunkHeader> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.start_time_ns);
  visit(record.end_time_ns);
  visit(record.plain_size);
  visit(record.plain_crc);
  visit(record.compression);
  visit(record.stored_size);
}

template <IsA<MessageIndex> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.channel_id);
  visit(record.entries);
}

template <IsA<ChunkIndex> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.start_time_ns);
  visit(record.end_time_ns);
  visit(record.chunk_start);
  visit(record.chunk_length);
  visit(record.message_index_offsets);
  visit(record.message_index_length);
  visit(record.compression);
  visit(record.stored_size);
  visit(record.plain_size);
}

template <IsA<Statistics> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.message_count);
  visit(record.schema_count);
  visit(record.channel_count);
  visit(record.attachment_count);
  visit(record.metadata_count);
  visit(record.chunk_count);
  visit(record.start_time_ns);
  visit(record.end_time_ns);
  visit(record.channel_message_counts);
}

template <IsA<SummaryOffset> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.opcode);
  visit(record.start);
  visit(record.length);
}

template <IsA<DataEnd> Record, class Visit>
void VisitFields(Record& record, Visit& visit) {
  visit(record.data_crc);
}

}  // namespace kerul::lidar::mcap
