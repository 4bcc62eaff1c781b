#include "lidar_dds/topics.h"

#include <dds/dds.h>
#include <dds/ddsi/ddsi_sertype.h>

#include <array>
#include <cctype>
#include <cstdlib>

#include "lidar_dds/serialised_type.h"
#include "ros_messages/message_types.h"

namespace kerul::lidar::dds {
namespace {

// Datagrams as large as UDP takes: a message of 2 MB is 31 of them instead of some 1500.
constexpr const char* kLargeMessages =
    "<CycloneDDS><Domain><General>"
    "<MaxMessageSize>65500B</MaxMessageSize><FragmentSize>65000B</FragmentSize>"
    "</General></Domain></CycloneDDS>";
// A history that forgets: no write waits for a subscriber that does not answer.
constexpr std::int32_t kHistory = 5;

struct TopicPlan {
  const char* suffix;
  const ros::MessageType& type;
};

// In the order of MessageKind.
const std::array<TopicPlan, kMessageKinds> kPlans{
    {{"", ros::kPointCloud2}, {"/range", ros::kImage}, {"/reflectivity", ros::kImage}}};

struct QosDeleter {
  void operator()(dds_qos_t* qos) const { dds_delete_qos(qos); }
};
using Qos = std::unique_ptr<dds_qos_t, QosDeleter>;

Qos WriterQos(const ros::MessageType& type) {
  Qos qos(dds_create_qos());
  dds_qset_reliability(qos.get(), DDS_RELIABILITY_RELIABLE, DDS_MSECS(100));
  dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST, kHistory);
  dds_qset_durability(qos.get(), DDS_DURABILITY_VOLATILE);
  const dds_data_representation_id_t plain = DDS_DATA_REPRESENTATION_XCDR1;
  dds_qset_data_representation(qos.get(), 1, &plain);
  // Newer middlewares warn when it is missing.
  const std::string hash = "typehash=" + std::string(type.hash) + ";";
  dds_qset_userdata(qos.get(), hash.data(), hash.size());
  return qos;
}

class Topics : public MessageSink {
 public:
  ~Topics() override {
    if (domain_ > 0) dds_delete(domain_);
  }

  bool Open(const TopicOptions& options, std::string& error) {
    const auto failed = [&](const char* what, dds_return_t code) {
      error = std::string(what) + ": " + dds_strretcode(-code);
      return false;
    };
    const char* configured = std::getenv("CYCLONEDDS_URI");
    std::string configuration = kLargeMessages;
    if (configured != nullptr && *configured != '\0') {
      configuration.append(",").append(configured);
    }
    const auto domain = static_cast<dds_domainid_t>(options.domain);
    domain_ = dds_create_domain(domain, configuration.c_str());
    if (domain_ < 0) return failed("cannot configure the domain", domain_);
    const dds_entity_t participant = dds_create_participant(domain, nullptr, nullptr);
    if (participant < 0) return failed("cannot join the domain", participant);
    for (std::size_t kind = 0; kind < kMessageKinds; ++kind) {
      if (kind != kCloud && !options.images) continue;
      const dds_return_t opened = OpenWriter(participant, options.topic, kind);
      if (opened < 0) return failed("cannot create the topic", opened);
    }
    return true;
  }

  bool Write(MessageKind kind, std::span<const std::uint8_t> message) override {
    if (writers_[kind] <= 0) return false;
    return dds_writecdr(writers_[kind], MakeSample(types_[kind], message)) == DDS_RETCODE_OK;
  }

  int Subscribers(MessageKind kind) override {
    dds_publication_matched_status_t status{};
    if (writers_[kind] <= 0) return 0;
    if (dds_get_publication_matched_status(writers_[kind], &status) != DDS_RETCODE_OK) return 0;
    return static_cast<int>(status.current_count);
  }

 private:
  dds_return_t OpenWriter(dds_entity_t participant, const std::string& name, std::size_t kind) {
    const TopicPlan& plan = kPlans[kind];
    ddsi_sertype* type = MakeSerialisedType(plan.type.dds_name);
    std::string topic_name = "rt/";
    topic_name.append(name).append(plan.suffix);
    const dds_entity_t topic =
        dds_create_topic_sertype(participant, topic_name.c_str(), &type, nullptr, nullptr, nullptr);
    if (topic < 0) {
      ddsi_sertype_unref(type);
      return topic;
    }
    types_[kind] = type;
    const Qos qos = WriterQos(plan.type);
    writers_[kind] = dds_create_writer(participant, topic, qos.get(), nullptr);
    return writers_[kind];
  }

  dds_entity_t domain_ = 0;
  std::array<dds_entity_t, kMessageKinds> writers_{};
  std::array<const ddsi_sertype*, kMessageKinds> types_{};
};

}  // namespace

bool IsTopicName(const std::string& name) {
  bool begins_part = true;
  for (const char character : name) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '/') {
      if (begins_part) return false;
      begins_part = true;
      continue;
    }
    if (code > 127 || (std::isalnum(code) == 0 && character != '_')) return false;
    if (begins_part && std::isdigit(code) != 0) return false;
    begins_part = false;
  }
  return !begins_part;
}

std::unique_ptr<MessageSink> OpenTopics(const TopicOptions& options, std::string& error) {
  auto topics = std::make_unique<Topics>();
  if (!topics->Open(options, error)) return nullptr;
  return topics;
}

}  // namespace kerul::lidar::dds
