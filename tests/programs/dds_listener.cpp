// Subscribes to a topic with another maker's DDS and keeps the bytes of what comes.
//
//   dds_listener DOMAIN TOPIC TYPE FILE [best-effort]
//
// FILE gets for each message its length (4 bytes, this machine's order) and its bytes,
// encapsulation first. Standard output gets "matched" when a writer was found, "unmatched" when it
// left, and "message N" after each message. Ends when it is interrupted.

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/subscriber/DataReader.hpp>
#include <fastdds/dds/subscriber/DataReaderListener.hpp>
#include <fastdds/dds/subscriber/SampleInfo.hpp>
#include <fastdds/dds/subscriber/Subscriber.hpp>
#include <fastdds/dds/topic/TopicDataType.hpp>
#include <fastdds/dds/topic/TypeSupport.hpp>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace eprosima::fastdds::dds;

constexpr std::uint32_t kReceiveBuffer = 16U << 20;

// A type whose sample is the message as it came.
class RawType : public TopicDataType {
 public:
  using Bytes = std::vector<std::uint8_t>;

  explicit RawType(const std::string& name) {
    setName(name.c_str());
    m_typeSize = 1024;  // grows with the messages
    m_isGetKeyDefined = false;
    auto_fill_type_object(false);
    auto_fill_type_information(false);
  }
  bool serialize(void* /*sample*/,
                 eprosima::fastrtps::rtps::SerializedPayload_t* /*payload*/) override {
    return false;
  }
  bool deserialize(eprosima::fastrtps::rtps::SerializedPayload_t* payload, void* sample) override {
    static_cast<Bytes*>(sample)->assign(payload->data, payload->data + payload->length);
    return true;
  }
  std::function<std::uint32_t()> getSerializedSizeProvider(void* /*sample*/) override {
    return [] { return 0U; };
  }
  void* createData() override { return new Bytes; }
  void deleteData(void* sample) override { delete static_cast<Bytes*>(sample); }
  bool getKey(void* /*sample*/, InstanceHandle_t* /*handle*/, bool /*force_md5*/) override {
    return false;
  }
};

class Listener : public DataReaderListener {
 public:
  explicit Listener(const std::string& path) : file_(path, std::ios::binary) {}

  void on_subscription_matched(DataReader* /*reader*/,
                               const SubscriptionMatchedStatus& status) override {
    std::cout << (status.current_count_change > 0 ? "matched" : "unmatched") << std::endl;
  }
  void on_data_available(DataReader* reader) override {
    RawType::Bytes message;
    SampleInfo info;
    while (reader->take_next_sample(&message, &info) == ReturnCode_t::RETCODE_OK) {
      if (!info.valid_data) continue;
      const auto length = static_cast<std::uint32_t>(message.size());
      file_.write(reinterpret_cast<const char*>(&length), sizeof(length));
      file_.write(reinterpret_cast<const char*>(message.data()), length);
      file_.flush();
      std::cout << "message " << ++count_ << std::endl;
    }
  }

 private:
  std::ofstream file_;
  int count_ = 0;
};

}  // namespace

// The library asks for a receive buffer, and a machine grants no more than net.core.rmem_max. Here
// it gets what it asks for where the test may: the result shall not depend on the machine's
// settings.
extern "C" int setsockopt(int fd, int level, int option, const void* value,
                          socklen_t size) noexcept {
  if (level == SOL_SOCKET && option == SO_RCVBUF &&
      syscall(SYS_setsockopt, fd, level, SO_RCVBUFFORCE, value, size) == 0) {
    return 0;
  }
  return static_cast<int>(syscall(SYS_setsockopt, fd, level, option, value, size));
}

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);  // also in the library's threads

  DomainParticipantQos participant_qos;
  const auto udp = std::make_shared<eprosima::fastdds::rtps::UDPv4TransportDescriptor>();
  udp->receiveBufferSize = kReceiveBuffer;
  participant_qos.transport().use_builtin_transports = false;
  participant_qos.transport().user_transports.push_back(udp);
  DomainParticipantFactory* factory = DomainParticipantFactory::get_instance();
  DomainParticipant* participant =
      factory->create_participant(static_cast<std::uint32_t>(std::stoul(argv[1])), participant_qos);
  if (participant == nullptr) return 1;
  const TypeSupport type(new RawType(argv[3]));
  type.register_type(participant);
  Topic* topic = participant->create_topic(argv[2], argv[3], TOPIC_QOS_DEFAULT);
  Subscriber* subscriber = participant->create_subscriber(SUBSCRIBER_QOS_DEFAULT);

  DataReaderQos qos;
  const bool best_effort = argc > 5 && std::string(argv[5]) == "best-effort";
  qos.reliability().kind = best_effort ? BEST_EFFORT_RELIABILITY_QOS : RELIABLE_RELIABILITY_QOS;
  qos.history().kind = KEEP_LAST_HISTORY_QOS;
  qos.history().depth = 5;
  qos.endpoint().history_memory_policy = eprosima::fastrtps::rtps::DYNAMIC_RESERVE_MEMORY_MODE;
  Listener listener(argv[4]);
  if (subscriber->create_datareader(topic, qos, &listener) == nullptr) return 1;
  int signal = 0;
  sigwait(&interrupt, &signal);
  participant->delete_contained_entities();
  factory->delete_participant(participant);
  return 0;
}
