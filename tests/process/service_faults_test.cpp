// A start without arguments against a sensor that stalls, lies or closes: it ends within its bound,
// with the text that says what went wrong.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "process_fixture.h"
#include "sensor_simulator/command_service.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

using namespace std::chrono_literals;
using simulator::CommandService;
using simulator::kServiceHeadRegister;
using simulator::kServiceMainRegister;
using simulator::ServiceFaults;
using simulator::StallPhase;

const std::string kFailed = "[ERROR] failed to start LidarNode: ";
const std::string kHeadFailed = kFailed + "para2 head register read failed: ";
const std::string kMainFailed = kFailed + "para2 main read failed: ";
// No cache is there to fall back to.
const std::string kNoCache =
    "; bin fallback failed: cannot open data/SIM-0001/para_read/SIM-0001_head.bin\n";

// Seconds that a start may take beyond its waits: eight programs at a time, and 661 pages, on a
// slow and busy machine.
constexpr double kStartPatience = 30.0;

// How a start ended, and when.
struct Ending {
  int status = -1;
  std::string out;
  std::string err;
  std::chrono::steady_clock::duration time{};
  bool cached = false;
};

// The log of a start that was interrupted so many times and fails.
std::string InterruptedStartLog(int interrupts) {
  std::string lines;
  for (int i = 0; i < interrupts; ++i) lines += "Interrupt signal (2) received.\n";
  return FailedStartLog("", lines);
}

class ServiceFaultsTest : public IsolatedProcessTest {
 protected:
  void SetUp() override {
    IsolatedProcessTest::SetUp();
    if (!isolation_.Fault().empty()) return;
    isolation_.AddAddress(SensorIp());
    service_ = std::make_unique<CommandService>(
        simulator::ServiceContent{SensorBlobs().head, SensorBlobs().main}, SensorIp(), kSensorPort);
  }

  Ending Start() const {
    Ending ending;
    const auto begin = std::chrono::steady_clock::now();
    const auto node = StartNode();
    ending.status = node->WaitForExit().value_or(-1);
    ending.time = std::chrono::steady_clock::now() - begin;
    ending.out = node->Out();
    ending.err = WithoutProgress(node->Err());
    ending.cached = std::filesystem::exists(Directory() / "data");
    return ending;
  }

  // A start that fails with this text on standard error and leaves no cache.
  void ExpectFailure(const ServiceFaults& faults, const std::string& error) {
    SCOPED_TRACE(error);
    service_->SetFaults(faults);
    std::filesystem::remove("/dev/shm/kerul_lidar_udp_shm");
    const Ending ending = Start();
    EXPECT_EQ(ending.status, 1);
    EXPECT_EQ(ending.err, error);
    EXPECT_EQ(ending.out, FailedStartLog(""));
    EXPECT_FALSE(ending.cached);
  }
  // The same fault in the answer to the head read and to a page of the main read.
  void ExpectFailures(ServiceFaults faults, const std::string& error) {
    faults.on_register = kServiceHeadRegister;
    ExpectFailure(faults, kHeadFailed + error + "\n");
    faults.on_register = kServiceMainRegister;
    faults.on_exchange = 300;
    ExpectFailure(faults, kMainFailed + error + kNoCache);
  }

  std::unique_ptr<CommandService> service_;
};

TEST_F(ServiceFaultsTest, AFalseMagic) {
  ServiceFaults faults;
  faults.magic = {'G', 'T'};
  ExpectFailures(faults, "RCX read header failed");
}

TEST_F(ServiceFaultsTest, AnErrorCode) {
  ServiceFaults faults;
  faults.return_code = 0xA5;
  ExpectFailures(faults, "RCX return error code=0xA5");
}

TEST_F(ServiceFaultsTest, AnAnswerThatIsTooShort) {
  ServiceFaults faults;
  faults.missing_bytes = 1;
  ExpectFailures(faults, "RCX read payload too short: need=256 bytes, got=255");
}

TEST_F(ServiceFaultsTest, AClosedConnection) {
  ServiceFaults faults;
  faults.close_before_answer = true;
  ExpectFailures(faults, "RCX read header failed");
  faults = {};
  faults.close_after_bytes = 100;  // the header and 92 bytes
  faults.on_connection = service_->accepted_connections();
  ExpectFailure(faults, kHeadFailed + "RCX read body failed\n");
  faults.close_after_bytes = 264 * 5 + 3;  // five pages and part of a header
  faults.on_connection = service_->accepted_connections() + 1;
  ExpectFailure(faults, kMainFailed + "RCX read header failed" + kNoCache);
}

TEST_F(ServiceFaultsTest, AServiceThatIsNotThere) {
  service_.reset();
  const Ending ending = Start();
  EXPECT_EQ(ending.status, 1);
  EXPECT_EQ(ending.out, FailedStartLog(""));
  EXPECT_EQ(ending.err, kHeadFailed + "RCX: connect to " + SensorIp() + ":9347 failed\n");
}

// The limit counts reads, not bytes.
TEST_F(ServiceFaultsTest, AnAnswerInManyPieces) {
  ServiceFaults faults;
  // A machine that is late finds several pieces at a read, but not 52 of them.
  faults.body_piece_bytes = 1;
  faults.piece_gap_ms = 50;
  ExpectFailures(faults, "RCX read body failed");
}

TEST_F(ServiceFaultsTest, ABlankSensor) {
  ServiceFaults faults;
  faults.blank = true;
  // The id of a blank head is eight bytes of 0xFF.
  const std::string id = "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF";
  ExpectFailure(faults, kMainFailed +
                            "para2 page_count invalid (0xFFFF); bin fallback failed: cannot open "
                            "data/" +
                            id + "/para_read/" + id + "_head.bin\n");
}

TEST_F(ServiceFaultsTest, AFlippedBitOnTheWire) {
  ServiceFaults faults;
  faults.on_register = kServiceMainRegister;
  faults.on_exchange = 7;
  faults.flip_at = 13;
  service_->SetFaults(faults);
  const Ending ending = Start();
  EXPECT_EQ(ending.status, 1);
  EXPECT_EQ(ending.out, FailedStartLog(""));
  EXPECT_EQ(ending.err.rfind(kFailed + "para2 head checksum verify failed (para2_crc stored=", 0),
            0U)
      << ending.err;
  EXPECT_FALSE(ending.cached);
}

// What the node must not care about.
TEST_F(ServiceFaultsTest, OddButSoundAnswersServe) {
  ServiceFaults faults;
  faults.command = 0x11;
  faults.front_bytes = 40;  // the last bytes are the data
  service_->SetFaults(faults);
  const auto node = StartNode();
  ASSERT_TRUE(WaitUntilRunning(*node)) << node->Err();
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_TRUE(node->WaitFor(Stream::kOut, kDefaultNode.Last()));
}

// An interrupt uses up one of the reads, and the others go on.
TEST_F(ServiceFaultsTest, AnInterruptInAStalledStartPrintsItsLineAndTheStartFailsInItsTime) {
  ServiceFaults faults;
  faults.stall = StallPhase::kBeforeHeader;
  service_->SetFaults(faults);
  const auto node = StartNode();
  ASSERT_TRUE(WaitUntil([&] { return service_->received_requests() == 1; }));
  node->Signal(SIGINT);
  ASSERT_TRUE(node->WaitFor(Stream::kOut, "Interrupt signal (2) received.\n"));
  EXPECT_EQ(node->WaitForExit(), 1);
  EXPECT_EQ(node->Out(), InterruptedStartLog(1));
  EXPECT_EQ(node->Err(), kHeadFailed + "RCX read header failed\n");
}

TEST_F(ServiceFaultsTest, ASecondInterruptEndsAStalledStartAtOnce) {
  ServiceFaults faults;
  faults.stall = StallPhase::kBeforeHeader;
  service_->SetFaults(faults);
  const auto node = StartNode();
  ASSERT_TRUE(WaitUntil([&] { return service_->received_requests() == 1; }));
  node->Signal(SIGINT);
  ASSERT_TRUE(node->WaitFor(Stream::kOut, "Interrupt signal (2) received.\n"));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(node->Interrupt(), 128 + SIGINT);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);  // three waits of a second are left
  EXPECT_EQ(node->Out(), OpeningLines("") + LoadingLine("") +
                             "Interrupt signal (2) received.\nInterrupt signal (2) received.\n");
}

TEST_F(ServiceFaultsTest, AnInterruptInASlowStartEndsTheNodeOnceItIsThere) {
  CommandService& service = *service_;
  {
    const auto first = StartNode();  // fills the cache
    ASSERT_TRUE(WaitUntilRunning(*first)) << first->Err();
    EXPECT_EQ(first->Interrupt(), 0);
  }
  ServiceFaults faults;
  faults.on_register = kServiceHeadRegister;
  faults.header_piece_bytes = 4;  // two reads, and one that the interrupt cuts short
  faults.piece_gap_ms = 700;
  service.SetFaults(faults);
  const int before = service.received_requests();
  const auto node = StartNode();
  ASSERT_TRUE(WaitUntil([&] { return service.received_requests() == before + 1; }));
  node->Signal(SIGINT);
  EXPECT_EQ(node->WaitForExit(), 0);
  EXPECT_TRUE(node->WaitFor(Stream::kOut, "Interrupt signal (2) received.\n"));
  EXPECT_TRUE(node->WaitFor(Stream::kOut, kDefaultNode.Last()));
  EXPECT_EQ(node->Err(), "");
}

// A page takes 80 ms, all of them most of a minute.
TEST_F(ServiceFaultsTest, AnInterruptWhilePagesAreReadEndsTheStartAfterThePageInHand) {
  ServiceFaults faults;
  faults.on_register = kServiceMainRegister;
  faults.body_piece_bytes = 128;
  faults.piece_gap_ms = 40;
  service_->SetFaults(faults);
  const auto node = StartNode();
  ASSERT_TRUE(node->WaitFor(Stream::kErr, "[INFO] para2: 100 of 661 pages read from the sensor\n"));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
  EXPECT_EQ(node->Out(), InterruptedStartLog(1));
  EXPECT_TRUE(std::regex_search(
      node->Err(),
      std::regex(
          "\n\\[INFO\\] interrupted: 1[0-9]{2} of 661 pages of the calibration read, nothing "
          "kept\n$")))
      << node->Err();
  EXPECT_FALSE(std::filesystem::exists(Directory() / "data"));
}

// From the first instruction to the running node: none is lost.
TEST_F(ServiceFaultsTest, OneInterruptAtAnyMomentOfAStartEndsIt) {
  for (int round = 0; round < 16; ++round) {
    std::filesystem::remove_all(Directory() / "data");
    const auto node = StartNode();
    std::this_thread::sleep_for(std::chrono::milliseconds(25 * round));
    const auto status = node->Interrupt();
    // Before main: as any program does.
    EXPECT_TRUE(status == 0 || (round < 4 && status == 128 + SIGINT))
        << "after " << 25 * round << " ms: " << ::testing::PrintToString(status) << node->Err();
  }
}

// ---- Stalls: all at the same time, each in a network of its own, since each takes its seconds.

struct Stall {
  std::string name;
  ServiceFaults faults;
  std::string error;
  int waits;  // of one second
};

ServiceFaults StallIn(StallPhase phase, std::uint16_t reg, std::uint32_t exchange) {
  ServiceFaults faults;
  faults.stall = phase;
  faults.on_register = reg;
  faults.on_exchange = exchange;
  return faults;
}

std::vector<Stall> Stalls() {
  ServiceFaults no_request;
  no_request.stall = StallPhase::kAfterAccept;
  no_request.on_connection = 0;
  ServiceFaults no_second_request = no_request;
  no_second_request.on_connection = 1;
  // 4 GiB that never come.
  ServiceFaults false_length;
  false_length.announced_length = 0xFFFFFFFF;
  return {
      {"head, false length", false_length, kHeadFailed + "RCX read body failed\n", 4},
      {"head, request", no_request, kHeadFailed + "RCX read header failed\n", 5},
      {"head, header", StallIn(StallPhase::kBeforeHeader, kServiceHeadRegister, 0),
       kHeadFailed + "RCX read header failed\n", 5},
      // The first of the five reads brings half of the page.
      {"head, body", StallIn(StallPhase::kInBody, kServiceHeadRegister, 0),
       kHeadFailed + "RCX read body failed\n", 4},
      {"main, request", no_second_request, kMainFailed + "RCX read header failed" + kNoCache, 5},
      {"main, first header", StallIn(StallPhase::kBeforeHeader, kServiceMainRegister, 0),
       kMainFailed + "RCX read header failed" + kNoCache, 5},
      {"main, last header", StallIn(StallPhase::kBeforeHeader, kServiceMainRegister, 660),
       kMainFailed + "RCX read header failed" + kNoCache, 5},
      {"main, body", StallIn(StallPhase::kInBody, kServiceMainRegister, 300),
       kMainFailed + "RCX read body failed" + kNoCache, 4},
  };
}

// One start in a network of the calling thread's own.
Ending StartAgainst(const std::function<std::shared_ptr<void>()>& make_sensor) {
  Ending ending;
  Isolation isolation;
  if (!isolation.Fault().empty()) {
    ending.err = isolation.Fault();
    return ending;
  }
  isolation.AddAddress(SensorIp());
  const std::shared_ptr<void> sensor = make_sensor();
  const TempDir directory;
  const auto begin = std::chrono::steady_clock::now();
  ChildProcess node({kNodeProgram}, directory.path());
  ending.status = node.WaitForExit().value_or(-1);
  ending.time = std::chrono::steady_clock::now() - begin;
  ending.out = node.Out();
  ending.err = WithoutProgress(node.Err());
  ending.cached = std::filesystem::exists(directory.path() / "data");
  return ending;
}

TEST_F(ServiceFaultsTest, AStallInAnyPhaseEndsTheStartAfterFiveWaitsAtMost) {
  const std::vector<Stall> stalls = Stalls();
  std::vector<Ending> endings(stalls.size());
  std::vector<std::thread> starts;
  for (std::size_t i = 0; i < stalls.size(); ++i) {
    starts.emplace_back([&, i] {
      endings[i] = StartAgainst([&] {
        auto service = std::make_shared<CommandService>(
            simulator::ServiceContent{SensorBlobs().head, SensorBlobs().main}, SensorIp(),
            kSensorPort);
        service->SetFaults(stalls[i].faults);
        return service;
      });
    });
  }
  for (std::thread& start : starts) start.join();
  for (std::size_t i = 0; i < stalls.size(); ++i) {
    SCOPED_TRACE(stalls[i].name);
    EXPECT_EQ(endings[i].status, 1);
    EXPECT_EQ(endings[i].out, FailedStartLog(""));
    EXPECT_EQ(endings[i].err, stalls[i].error);
    EXPECT_FALSE(endings[i].cached);
    const double seconds = std::chrono::duration<double>(endings[i].time).count();
    EXPECT_GE(seconds, stalls[i].waits - 0.05);
    EXPECT_LE(seconds, stalls[i].waits + kStartPatience);
  }
}

// Listens with a queue that is full: a new client gets no answer at all.
class DeafListener {
 public:
  DeafListener() : listener_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(kSensorPort);
    inet_pton(AF_INET, SensorIp().c_str(), &place.sin_addr);
    const auto* address = reinterpret_cast<const sockaddr*>(&place);
    ready_ = bind(listener_, address, sizeof(place)) == 0 && listen(listener_, 0) == 0;
    for (int& caller : callers_) {
      caller = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
      connect(caller, address, sizeof(place));
    }
  }
  ~DeafListener() {
    for (const int caller : callers_) close(caller);
    close(listener_);
  }
  DeafListener(const DeafListener&) = delete;
  DeafListener& operator=(const DeafListener&) = delete;

  bool IsReady() const noexcept { return ready_; }

 private:
  int listener_;
  int callers_[4] = {-1, -1, -1, -1};
  bool ready_ = false;
};

TEST_F(ServiceFaultsTest, AStalledConnectionEndsTheStartAfterOneWait) {
  service_.reset();
  const DeafListener deaf;
  ASSERT_TRUE(deaf.IsReady());
  const Ending ending = Start();
  EXPECT_EQ(ending.status, 1);
  EXPECT_EQ(ending.out, FailedStartLog(""));
  EXPECT_EQ(ending.err, kHeadFailed + "RCX: connect to " + SensorIp() + ":9347 failed\n");
  const double seconds = std::chrono::duration<double>(ending.time).count();
  EXPECT_GE(seconds, 0.95);
  EXPECT_LE(seconds, 1.0 + kStartPatience);
}

TEST_F(ServiceFaultsTest, AnInterruptWhileConnectingFailsTheConnection) {
  service_.reset();
  const DeafListener deaf;
  ASSERT_TRUE(deaf.IsReady());
  // The connection waits for a second. A test that is held up for longer finds the start over.
  std::string out = FailedStartLog("");
  for (int round = 0; round < 20 && out == FailedStartLog(""); ++round) {
    std::filesystem::remove("/dev/shm/kerul_lidar_udp_shm");
    const auto node = StartNode();
    ASSERT_TRUE(node->WaitFor(Stream::kOut, LoadingLine("")));
    node->Signal(SIGINT);
    EXPECT_EQ(node->WaitForExit(), 1);
    EXPECT_EQ(node->Err(), kHeadFailed + "RCX: connect to " + SensorIp() + ":9347 failed\n");
    out = node->Out();
  }
  EXPECT_EQ(out, InterruptedStartLog(1));
}

}  // namespace
}  // namespace kerul::lidar::testing
