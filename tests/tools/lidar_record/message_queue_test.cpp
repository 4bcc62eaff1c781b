#include "lidar_record/message_queue.h"

#include <gtest/gtest.h>

#include <thread>

namespace kerul::lidar::record {
namespace {

QueuedMessage Message(std::uint32_t sequence, std::size_t bytes) {
  QueuedMessage message;
  message.header.sequence = sequence;
  message.data.resize(bytes);
  return message;
}

bool TryPut(MessageQueue& queue, std::uint32_t sequence, std::size_t bytes) {
  QueuedMessage message = Message(sequence, bytes);
  return queue.TryPut(message);
}

std::uint32_t TakenSequence(MessageQueue& queue) {
  QueuedMessage message;
  EXPECT_TRUE(queue.Take(message));
  return message.header.sequence;
}

TEST(MessageQueue, HoldsAsManyBytesAsItHasRoomFor) {
  MessageQueue queue(100);
  EXPECT_TRUE(TryPut(queue, 1, 60));
  EXPECT_TRUE(TryPut(queue, 2, 40));
  EXPECT_FALSE(TryPut(queue, 3, 1));
  EXPECT_EQ(TakenSequence(queue), 1U);
  EXPECT_FALSE(TryPut(queue, 4, 61));
  EXPECT_TRUE(TryPut(queue, 5, 60));
  EXPECT_EQ(TakenSequence(queue), 2U);
  EXPECT_EQ(TakenSequence(queue), 5U);
}

TEST(MessageQueue, AMessageLargerThanAllRoomHasRoomAlone) {
  MessageQueue queue(100);
  EXPECT_TRUE(TryPut(queue, 1, 500));
  EXPECT_FALSE(TryPut(queue, 2, 1));
  EXPECT_EQ(TakenSequence(queue), 1U);
  EXPECT_TRUE(TryPut(queue, 3, 500));
}

TEST(MessageQueue, AMessageWithoutRoomStaysTheCallers) {
  MessageQueue queue(10);
  ASSERT_TRUE(TryPut(queue, 1, 10));
  QueuedMessage message = Message(2, 10);
  EXPECT_FALSE(queue.TryPut(message));
  EXPECT_EQ(message.data.size(), 10U);
}

TEST(MessageQueue, ASaveRequestNeedsNoRoomAndKeepsItsPlace) {
  MessageQueue queue(10);
  ASSERT_TRUE(TryPut(queue, 1, 10));
  queue.PutSaveRequest();
  EXPECT_EQ(TakenSequence(queue), 1U);
  QueuedMessage message;
  ASSERT_TRUE(queue.Take(message));
  EXPECT_TRUE(message.is_save_request);
}

TEST(MessageQueue, AClosedInputGivesWhatIsLeftAndThenTheEnd) {
  MessageQueue queue(10);
  ASSERT_TRUE(TryPut(queue, 1, 1));
  queue.CloseInput();
  EXPECT_EQ(TakenSequence(queue), 1U);
  QueuedMessage message;
  EXPECT_FALSE(queue.Take(message));
}

TEST(MessageQueue, AWaitForRoomEndsWithRoomOrWithTheTaker) {
  MessageQueue queue(10);
  ASSERT_TRUE(TryPut(queue, 1, 10));
  bool put = false;
  std::thread giver([&] {
    QueuedMessage message = Message(2, 10);
    put = queue.Put(message);
  });
  // So that it waits by now, most likely; otherwise less is tested.
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(TakenSequence(queue), 1U);
  giver.join();
  EXPECT_TRUE(put);

  std::thread refused([&] {
    QueuedMessage message = Message(3, 10);
    put = queue.Put(message);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  queue.CloseOutput();
  refused.join();
  EXPECT_FALSE(put);
  EXPECT_FALSE(TryPut(queue, 4, 0));
}

TEST(MessageQueue, MemoryIsUsedAgain) {
  MessageQueue queue(100);
  mcap::Bytes data(50, 7);
  const std::uint8_t* memory = data.data();
  queue.Recycle(std::move(data));
  mcap::Bytes again = queue.Buffer();
  EXPECT_TRUE(again.empty());
  again.resize(50);
  EXPECT_EQ(again.data(), memory);
}

}  // namespace
}  // namespace kerul::lidar::record
