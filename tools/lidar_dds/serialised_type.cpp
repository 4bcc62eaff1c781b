#include "lidar_dds/serialised_type.h"

#include <dds/ddsi/ddsi_serdata.h>
#include <dds/ddsi/ddsi_sertype.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace kerul::lidar::dds {
namespace {

struct Sample : ddsi_serdata {
  std::vector<std::uint8_t> bytes;  // the middleware reads to the next multiple of four
  std::uint32_t size = 0;           // without what was added for that
};

const Sample& SampleOf(const ddsi_serdata* data) { return static_cast<const Sample&>(*data); }

Sample* NewSample(const ddsi_sertype* type, ddsi_serdata_kind kind) {
  auto sample = std::make_unique<Sample>();
  ddsi_serdata_init(sample.get(), type, kind);
  sample->hash = type->serdata_basehash;
  return sample.release();
}

// A type without key has one instance: every sample is of it.
ddsi_serdata* InstanceOf(const ddsi_serdata* data) {
  Sample* instance = NewSample(data->type, SDK_KEY);
  instance->type = nullptr;
  return instance;
}

ddsi_serdata* Reference(const ddsi_serdata* data, std::size_t offset, std::size_t size,
                        ddsrt_iovec_t* reference) {
  const Sample& sample = SampleOf(data);
  reference->iov_base = const_cast<std::uint8_t*>(sample.bytes.data() + offset);
  reference->iov_len = size;
  return ddsi_serdata_ref(data);
}

void Copy(const ddsi_serdata* data, std::size_t offset, std::size_t size, void* to) {
  std::memcpy(to, SampleOf(data).bytes.data() + offset, size);
}

// What only readers need gives nothing.
const ddsi_serdata_ops& SampleOperations() {
  static const ddsi_serdata_ops operations = [] {
    ddsi_serdata_ops ops{};
    ops.eqkey = [](const ddsi_serdata*, const ddsi_serdata*) { return true; };
    ops.get_size = [](const ddsi_serdata* data) { return SampleOf(data).size; };
    ops.from_ser = [](const ddsi_sertype*, ddsi_serdata_kind, const nn_rdata*,
                      std::size_t) -> ddsi_serdata* { return nullptr; };
    ops.from_ser_iov = [](const ddsi_sertype*, ddsi_serdata_kind, ddsrt_msg_iovlen_t,
                          const ddsrt_iovec_t*, std::size_t) -> ddsi_serdata* { return nullptr; };
    ops.from_keyhash = [](const ddsi_sertype*, const ddsi_keyhash*) -> ddsi_serdata* {
      return nullptr;
    };
    ops.from_sample = [](const ddsi_sertype*, ddsi_serdata_kind, const void*) -> ddsi_serdata* {
      return nullptr;
    };
    ops.to_ser = Copy;
    ops.to_ser_ref = Reference;
    ops.to_ser_unref = [](ddsi_serdata* data, const ddsrt_iovec_t*) { ddsi_serdata_unref(data); };
    ops.to_sample = [](const ddsi_serdata*, void*, void**, void*) { return false; };
    ops.to_untyped = InstanceOf;
    ops.untyped_to_sample = [](const ddsi_sertype*, const ddsi_serdata*, void*, void**, void*) {
      return false;
    };
    ops.free = [](ddsi_serdata* data) { delete static_cast<Sample*>(data); };
    ops.print = [](const ddsi_sertype*, const ddsi_serdata*, char* text, std::size_t size) {
      if (size > 0) *text = '\0';
      return std::size_t{0};
    };
    ops.get_keyhash = [](const ddsi_serdata*, ddsi_keyhash* hash, bool) { *hash = {}; };
    return ops;
  }();
  return operations;
}

const ddsi_sertype_ops& TypeOperations() {
  static const ddsi_sertype_ops operations = [] {
    ddsi_sertype_ops ops{};
    ops.version = ddsi_sertype_v0;
    ops.free = [](ddsi_sertype* type) {
      ddsi_sertype_fini(type);
      delete type;
    };
    ops.zero_samples = [](const ddsi_sertype*, void*, std::size_t) {};
    ops.realloc_samples = [](void**, const ddsi_sertype*, void*, std::size_t, std::size_t) {};
    ops.free_samples = [](const ddsi_sertype*, void**, std::size_t, dds_free_op_t) {};
    // Asked only of types whose names and operations are the same.
    ops.equal = [](const ddsi_sertype*, const ddsi_sertype*) { return true; };
    ops.hash = [](const ddsi_sertype*) { return std::uint32_t{0}; };
    return ops;
  }();
  return operations;
}

}  // namespace

ddsi_sertype* MakeSerialisedType(const char* dds_name) {
  auto type = std::make_unique<ddsi_sertype>();
  ddsi_sertype_init(type.get(), dds_name, &TypeOperations(), &SampleOperations(), true);
  type->allowed_data_representation = DDS_DATA_REPRESENTATION_FLAG_XCDR1;
  return type.release();
}

ddsi_serdata* MakeSample(const ddsi_sertype* type, std::span<const std::uint8_t> message) {
  Sample* sample = NewSample(type, SDK_DATA);
  sample->size = static_cast<std::uint32_t>(message.size());
  sample->bytes.reserve((message.size() + 3) / 4 * 4);
  sample->bytes.assign(message.begin(), message.end());
  sample->bytes.resize((message.size() + 3) / 4 * 4);
  return sample;
}

}  // namespace kerul::lidar::dds
