// The nine pixel blocks of a packet with W lanes, bit for bit the scalar form (DecodeBlocks). First
// a lane is a pixel, then a window to be decoded.
#pragma once

#include <cstddef>
#include <cstdint>

#include "MIPI_reader/parser/echo_computation_lanes.h"
#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/packet_decoding_records.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "lanes/lanes.h"

namespace kerul::lidar {

template <int W>
struct PacketKernel {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;
  using Records = EchoRecords<W>;

  static int Decode(const PacketContext& context, const std::uint8_t* blocks,
                    LidarPoint* points) noexcept {
    Pixels pixels;
    pixels.wanted[0] = pixels.wanted[1] = 0;
    for (int first = 0; first < kPixels; first += W) {
      DecodePixels(context, blocks, first, points, pixels);
    }
    Windows windows;
    ListWindows(pixels, points, windows);
    int next = 0;
    for (; windows.count - next > kFewWindows; next += W) {
      DecodeWindows(context, blocks, pixels, windows, next);
    }
    for (; next < windows.count; ++next) {
      DecodeWindow(context, blocks, pixels, windows.number[next], points);
    }
    if (context.settings.keep_bins) KeepBins(context, blocks, pixels, points);
    return PixelId(blocks + (kPixels - 1) * raw_packet::kBlockBytes);
  }

 private:
  static constexpr int kPixels = raw_packet::kBlocks;
  // Number of a window: 16 * slot + pixel.
  static constexpr int kSlotStep = 16;
  static constexpr int kMostWindows = kSlotStep * kEchoSlots;
  // Up to this many windows left over are faster one by one.
  static constexpr int kFewWindows = 1;
  // The first window starts with the even sample of a pair of samples, the second one with the odd
  // sample; both are taken from the pair's first byte.
  static constexpr int kWindowByte[kEchoSlots] = {15, 42};
  static_assert(raw_packet::kWindowSample == kWindowByte[0] / 3 * 2);
  static_assert(raw_packet::kWindowSample + raw_packet::kWindowStride ==
                kWindowByte[1] / 3 * 2 + 1);

  // What the windows need of their pixels; entries after the ninth are not used.
  struct Pixels {
    std::int32_t peak_addr[kMostWindows];  // by window
    float noise[kSlotStep];
    float baseline[kSlotStep];
    float threshold[kSlotStep];
    std::uint32_t wanted[kEchoSlots];  // a bit for each pixel whose window is to be decoded
  };

  // The words of W pixel blocks.
  struct PixelWords {
    Int peak_addr[kEchoSlots];
    Int pixel_id, noise, pixel_word22, pixel_word11;
  };

  // The windows to decode, those of slot 0 first.
  struct Windows {
    std::int32_t number[kMostWindows];
    std::int32_t offset[kMostWindows];  // bytes from the first block
    std::uint8_t* echo[kMostWindows];
    int first_slots;  // so many are of slot 0
    int count;
  };

  // Decodes W pixels: their points except the wanted windows.
  static void DecodePixels(const PacketContext& context, const std::uint8_t* blocks, int first,
                           LidarPoint* points, Pixels& pixels) noexcept {
    std::uint8_t idle[sizeof(LidarPoint)];
    const int lanes = kPixels - first < W ? kPixels - first : W;
    std::int32_t offsets[W];
    std::uint8_t* records[W];
    for (int lane = 0; lane < W; ++lane) {
      offsets[lane] = lane < lanes ? (first + lane) * raw_packet::kBlockBytes : 0;
      records[lane] = lane < lanes ? reinterpret_cast<std::uint8_t*>(points + first + lane) : idle;
    }
    const PixelWords words = ReadPixels(blocks, offsets);
    const Float noise = V::ToFloat(words.noise);
    const Float baseline = 3.0F * (context.shot_times * (noise * 0.00048828125F));
    const Float threshold = DetectThresholds(context, words.noise);
    WritePixels(context, words, threshold, records);
    V::Store(pixels.peak_addr + first, words.peak_addr[0]);
    V::Store(pixels.peak_addr + kSlotStep + first, words.peak_addr[1]);
    V::Store(pixels.noise + first, noise);
    V::Store(pixels.baseline + first, baseline);
    V::Store(pixels.threshold + first, threshold);

    const Int is_pixel = Iota() < lanes;
    Int has_window[kEchoSlots];
    for (int slot = 0; slot < kEchoSlots; ++slot) {
      has_window[slot] = is_pixel & (words.peak_addr[slot] <= raw_packet::kMaxPeakAddr) &
                         (slot < context.echo_count ? ~Int{} : Int{});
    }
    pixels.wanted[0] |= V::Bits(has_window[0]) << first;
    if (LidarPoint::echo_num < kEchoSlots) return;
    echo_computation::EchoLanes<W> echo;
    echo.noise = noise;
    echo.baseline = baseline;
    const Int goes_on = CompareSecondPeaks(blocks, offsets, threshold, echo);
    for (std::uint8_t*& record : records) record += kSecondEcho;
    Records::WriteWithoutPulse(has_window[1] & ~goes_on, echo, words.peak_addr[1], records, lanes);
    pixels.wanted[1] |= V::Bits(has_window[1] & goes_on) << first;
  }

  static constexpr std::ptrdiff_t kSecondEcho = offsetof(LidarPoint, echoes) + sizeof(LidarEcho);

  // Bytes 0..15 of the blocks: the samples 1..8 in bytes a, b, c of each pair as UnpackBlock tells.
  static PixelWords ReadPixels(const std::uint8_t* blocks, const std::int32_t* offsets) noexcept {
    Int d[4];
    LoadWords<W>(blocks, offsets, d);
    return {.peak_addr = {((d[0] >> 4) & 0xFF0) | ((d[0] >> 20) & 0xF),
                          ((d[0] >> 20) & 0xFF0) | ((d[1] >> 8) & 0xF)},
            .pixel_id = ((d[1] << 4) & 0xFF0) | ((d[1] >> 12) & 0xF),
            .noise = ((d[2] & 0xF) << 12) | ((d[1] >> 20) & 0xFF0) | ((d[2] >> 4) & 0xF),
            .pixel_word22 = ((((d[2] >> 4) & 0x3F0) | ((d[2] >> 24) & 0xF)) << 12) |
                            ((d[2] >> 12) & 0xFF0) | ((d[2] >> 28) & 0xF),
            .pixel_word11 = ((d[3] << 4) & 0x7F0) | ((d[3] >> 16) & 0xF)};
  }

  static int PixelId(const std::uint8_t* block) noexcept { return block[4] * 16 + (block[5] >> 4); }

  static Float DetectThresholds(const PacketContext& context, Int noise) noexcept {
    const std::uint16_t* bins = context.threshold_bins;
    const int count = context.threshold_count;
    if (count < 2) return V::Splat(count == 0 ? 0.0F : static_cast<float>(bins[0]));
    const Int last = V::SplatInt(count - 1);
    const Int by_noise = V::Select(noise > last, last, noise);
    Int index = V::Truncate(V::ToFloat(by_noise) * context.shot_ratio);
    index = V::Select(index < 0, Int{}, V::Select(index > last, last, index));
    // Two neighbours are read at once, the upper one being the last entry at most.
    const Int lower = V::Select(index == last, last - 1, index);
    const Int both = V::GatherPairs(bins, lower);
    return V::ToFloat(V::Select(index == last, both >> 16, both) & 0xFFFF);
  }

  // The points' own fields.
  static void WritePixels(const PacketContext& context, const PixelWords& words, Float threshold,
                          std::uint8_t* const* records) noexcept {
    static_assert(offsetof(LidarPoint, row) == 0 && offsetof(LidarPoint, col) == 4 &&
                  offsetof(LidarPoint, pixel_word22) == 8 &&
                  offsetof(LidarPoint, pixel_word11) == 12);
    const Int place = V::Gather(kPixelPlaces.offsets, words.pixel_id);
    StoreWords<W>((place & 0xFFFF) + context.first_row, (place >> 16) + context.first_col,
                  V::ToFloat(words.pixel_word22), V::ToFloat(words.pixel_word11), records, 0);
    static_assert(
        offsetof(LidarPoint, shot_times) == 16 && offsetof(LidarPoint, shot_ratio) == 20 &&
        offsetof(LidarPoint, detect_threshold) == 24 && offsetof(LidarPoint, echoes) == 28);
    // The last word is the first one of echo 0, which is written after this.
    StoreWords<W>(V::Splat(context.shot_times), V::Splat(context.shot_ratio), threshold, Int{},
                  records, 16);
  }

  // Most windows of slot 1 hold no pulse. Their samples are neither adapted nor clipped, and sums
  // of whole numbers below 2^24 are exact in any order. So three samples give the peak and its
  // ratio, and that is all of a window without a pulse. Gives the lanes that go on.
  static Int CompareSecondPeaks(const std::uint8_t* blocks, const std::int32_t* offsets,
                                Float threshold, echo_computation::EchoLanes<W>& echo) noexcept {
    // Samples 36, 37 and 38 stand in bytes 54..59.
    static_assert(raw_packet::kWindowSample + raw_packet::kWindowStride + 7 == 36);
    Int d[4];
    LoadWords<W>(blocks + 52, offsets, d);
    const Float sum = V::ToFloat((((d[0] >> 12) & 0xFF0) | (d[1] & 0xF)) +
                                 (((d[0] >> 20) & 0xFF0) | ((d[1] >> 4) & 0xF)) +
                                 (((d[1] >> 4) & 0xFF0) | ((d[1] >> 24) & 0xF)));
    echo.peak = echo.baseline + V::Select(sum > echo.baseline, sum - echo.baseline, Float{});
    return echo_computation::EchoKernel<W>::ComparePeak(threshold, echo);
  }

  static void ListWindows(const Pixels& pixels, LidarPoint* points, Windows& windows) noexcept {
    int count = 0;
    for (int slot = 0; slot < kEchoSlots; ++slot) {
      for (int pixel = 0; pixel < kPixels; ++pixel) {
        // Always listed, and overwritten by the next one if not wanted: no branch to mispredict.
        windows.number[count] = slot * kSlotStep + pixel;
        windows.offset[count] = pixel * raw_packet::kBlockBytes + kWindowByte[slot];
        windows.echo[count] = reinterpret_cast<std::uint8_t*>(&points[pixel].echoes[slot]);
        count += static_cast<int>(pixels.wanted[slot] >> pixel & 1U);
      }
      if (slot == 0) windows.first_slots = count;
    }
    windows.count = count;
    for (int pixel = 0; pixel < kPixels; ++pixel) {
      if ((pixels.wanted[0] >> pixel & 1U) == 0) Records::Reset(points[pixel].echoes[0]);
    }
  }

  // Decodes the W windows from `first` on. Idle lanes repeat the first one.
  static void DecodeWindows(const PacketContext& context, const std::uint8_t* blocks,
                            const Pixels& pixels, Windows& windows, int first) noexcept {
    std::uint8_t idle[sizeof(LidarEcho)];
    for (int i = windows.count; i < first + W; ++i) {
      windows.number[i] = windows.number[first];
      windows.offset[i] = windows.offset[first];
      windows.echo[i] = idle;
    }
    echo_computation::WindowLanes<W> in;
    in.is_first_slot = Iota() < windows.first_slots - first;
    ReadSamples(blocks, windows.offset + first, in);
    const Int number = V::Load(windows.number + first);
    const Int pixel = number & (kSlotStep - 1);
    const Int peak_addr = V::Gather(pixels.peak_addr, number);
    in.first_bin = V::ToFloat(peak_addr);
    in.noise = V::Gather(pixels.noise, pixel);
    in.baseline = V::Gather(pixels.baseline, pixel);
    in.detect_threshold = V::Gather(pixels.threshold, pixel);
    echo_computation::EchoLanes<W> echo;
    echo_computation::EchoKernel<W>::Compute(context.settings, context.shot_ratio, in, echo);
    const int rest = windows.count - first;
    Records::Write(echo, peak_addr, windows.echo + first, rest < W ? rest : W);
  }

  // The scalar form for one window.
  static void DecodeWindow(const PacketContext& context, const std::uint8_t* blocks,
                           const Pixels& pixels, int window, LidarPoint* points) noexcept {
    const int slot = window / kSlotStep;
    const int pixel = window % kSlotStep;
    LidarEcho& echo = points[pixel].echoes[slot];
    Records::Reset(echo);
    echo.peak_addr = pixels.peak_addr[window];
    echo.noise = pixels.noise[pixel];
    echo.baseline = pixels.baseline[pixel];
    std::uint16_t samples[kWindowSamples];
    UnpackWindow(blocks + pixel * raw_packet::kBlockBytes + kWindowByte[slot], slot, samples);
    ComputeEcho(context.settings, samples, points[pixel], slot);
  }

  static void KeepBins(const PacketContext& context, const std::uint8_t* blocks,
                       const Pixels& pixels, LidarPoint* points) noexcept {
    for (int window = 0; window < context.echo_count * kSlotStep; ++window) {
      const int slot = window / kSlotStep;
      const int pixel = window % kSlotStep;
      if (pixel >= kPixels || pixels.peak_addr[window] > raw_packet::kMaxPeakAddr) continue;
      std::uint16_t samples[kWindowSamples];
      UnpackWindow(blocks + pixel * raw_packet::kBlockBytes + kWindowByte[slot], slot, samples);
      __builtin_memcpy(&points[pixel].echoes[slot].bins, samples, sizeof(samples));
    }
  }

  // The 17 samples of a window of slot 0 or 1, from the first byte of their pairs.
  static void UnpackWindow(const std::uint8_t* pair, int slot, std::uint16_t* samples) noexcept {
    for (int i = 0; i < kWindowSamples; ++i) {
      const bool is_even = (slot + i) % 2 == 0;
      samples[i] = static_cast<std::uint16_t>(is_even ? pair[0] * 16 + (pair[2] & 0xF)
                                                      : pair[1] * 16 + (pair[2] >> 4));
      pair += is_even ? 0 : 3;
    }
  }

  // Nine pairs of three bytes hold 18 samples: the first window and one more after it, or the
  // second window and one more before it. A pair lies in one or two four-byte words.
  static void ReadSamples(const std::uint8_t* blocks, const std::int32_t* offsets,
                          echo_computation::WindowLanes<W>& in) noexcept {
    Int d[8];
    LoadWords<W>(blocks, offsets, d);
    LoadWords<W>(blocks + 12, offsets, d + 3);
    Int samples[kWindowSamples + 1];
    Int* sample = samples;
    for (int i = 0; i < 6; i += 3) {
      const Int x = d[i];
      const Int y = d[i + 1];
      const Int z = d[i + 2];
      *sample++ = ((x << 4) & 0xFF0) | ((x >> 16) & 0xF);
      *sample++ = ((x >> 4) & 0xFF0) | ((x >> 20) & 0xF);
      *sample++ = ((x >> 20) & 0xFF0) | ((y >> 8) & 0xF);
      *sample++ = ((y << 4) & 0xFF0) | ((y >> 12) & 0xF);
      *sample++ = ((y >> 12) & 0xFF0) | (z & 0xF);
      *sample++ = ((y >> 20) & 0xFF0) | ((z >> 4) & 0xF);
      *sample++ = ((z >> 4) & 0xFF0) | ((z >> 24) & 0xF);
      *sample++ = ((z >> 12) & 0xFF0) | ((z >> 28) & 0xF);
    }
    samples[16] = ((d[6] << 4) & 0xFF0) | ((d[6] >> 16) & 0xF);
    samples[17] = ((d[6] >> 4) & 0xFF0) | ((d[6] >> 20) & 0xF);
    for (int i = 0; i < kWindowSamples; ++i) {
      in.samples[i] = V::ToFloat(V::Select(in.is_first_slot, samples[i], samples[i + 1]));
    }
  }

  // 0, 1, 2 and so on.
  static Int Iota() noexcept {
    static constexpr std::int32_t kLanes[16] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                8, 9, 10, 11, 12, 13, 14, 15};
    return V::Load(kLanes);
  }
};

}  // namespace kerul::lidar
