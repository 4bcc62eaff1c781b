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

  // Gives the pixel id of the last block.
  static int Decode(const PacketContext& context, const std::uint8_t* blocks,
                    PacketPlanes& planes) noexcept {
    planes.pixel_count = kPixels;
    planes.shot_times = context.shot_times;
    planes.shot_ratio = context.shot_ratio;
    std::int32_t peak_addr[kMostWindows];  // by number of the window
    planes.windows_of_pixels[0] = planes.windows_of_pixels[1] = 0;
    for (int first = 0; first < kPixels; first += W) {
      DecodePixels(context, blocks, first, peak_addr, planes);
    }
    std::int32_t offsets[kMostWindows];
    const int first_slots = ListWindows(planes, offsets);
    echo_computation::WindowLanes<W> windows[kMostGroups];
    echo_computation::EchoLanes<W> echoes[kMostGroups];
    int groups = 0;
    for (int first = 0; first < planes.window_count; first += W) {
      TakeWindows(blocks, peak_addr, offsets, first_slots, first, planes, windows[groups++]);
    }
    echo_computation::EchoKernel<W>::Compute(context.settings, context.shot_ratio, groups, windows,
                                             echoes);
    for (int i = 0; i < groups; ++i) StoreEchoes(echoes[i], i * W, planes);
    return PixelId(blocks + (kPixels - 1) * raw_packet::kBlockBytes);
  }

  // Decodes into the records of nine points, as DecodeBlocks does.
  static int DecodePoints(const PacketContext& context, const std::uint8_t* blocks,
                          LidarPoint* points) noexcept {
    PacketPlanes planes;
    const int last_pixel_id = Decode(context, blocks, planes);
    LidarPoint* places[kPixels];
    for (int i = 0; i < kPixels; ++i) places[i] = points + i;
    PacketRecords<W, false>::Store(planes, places);
    if (context.settings.keep_bins) KeepBins(context, blocks, points);
    return last_pixel_id;
  }

 private:
  static constexpr int kPixels = raw_packet::kBlocks;
  static constexpr int kSlotStep = PacketPlanes::kPixels;
  static constexpr int kMostWindows = PacketPlanes::kWindows;
  static constexpr int kMostGroups = (kEchoSlots * kPixels + W - 1) / W;
  // The first window starts with the even sample of a pair of samples, the second one with the odd
  // sample; both are taken from the pair's first byte.
  static constexpr int kWindowByte[kEchoSlots] = {15, 42};
  static_assert(raw_packet::kWindowSample == kWindowByte[0] / 3 * 2);
  static_assert(raw_packet::kWindowSample + raw_packet::kWindowStride ==
                kWindowByte[1] / 3 * 2 + 1);

  // The words of W pixel blocks.
  struct PixelWords {
    Int peak_addr[kEchoSlots];
    Int pixel_id, noise, pixel_word22, pixel_word11;
  };

  // Decodes W pixels except the windows that may hold a pulse.
  static void DecodePixels(const PacketContext& context, const std::uint8_t* blocks, int first,
                           std::int32_t* peak_addr, PacketPlanes& planes) noexcept {
    const int lanes = kPixels - first < W ? kPixels - first : W;
    std::int32_t offsets[W];
    for (int lane = 0; lane < W; ++lane) {
      offsets[lane] = lane < lanes ? (first + lane) * raw_packet::kBlockBytes : 0;
    }
    const PixelWords words = ReadPixels(blocks, offsets);
    const Int place = V::Gather(kPixelPlaces.offsets, words.pixel_id);
    const Float noise = V::ToFloat(words.noise);
    const Float baseline = 3.0F * (context.shot_times * (noise * 0.00048828125F));
    const Float threshold = DetectThresholds(context, words.noise);
    V::Store(planes.row + first, (place & 0xFFFF) + context.first_row);
    V::Store(planes.col + first, (place >> 16) + context.first_col);
    V::Store(planes.pixel_word22 + first, V::ToFloat(words.pixel_word22));
    V::Store(planes.pixel_word11 + first, V::ToFloat(words.pixel_word11));
    V::Store(planes.detect_threshold + first, threshold);
    V::Store(planes.noise + first, noise);
    V::Store(planes.baseline + first, baseline);
    V::Store(peak_addr + first, words.peak_addr[0]);
    V::Store(peak_addr + kSlotStep + first, words.peak_addr[1]);

    const Int is_pixel = Iota() < lanes;
    Int has_window[kEchoSlots];
    for (int slot = 0; slot < kEchoSlots; ++slot) {
      has_window[slot] = is_pixel & (words.peak_addr[slot] <= raw_packet::kMaxPeakAddr) &
                         (slot < context.echo_count ? ~Int{} : Int{});
    }
    echo_computation::EchoLanes<W> echo;
    echo.baseline = baseline;
    const Int goes_on = CompareSecondPeaks(blocks, offsets, threshold, echo);
    V::Store(planes.no_pulse + first, has_window[1] & ~goes_on);
    V::Store(planes.no_pulse_peak_addr + first, words.peak_addr[1]);
    V::Store(planes.no_pulse_peak + first, echo.peak);
    V::Store(planes.no_pulse_peak_ratio + first, echo.peak_ratio);
    planes.windows_of_pixels[0] |= V::Bits(has_window[0]) << first;
    planes.windows_of_pixels[1] |= V::Bits(has_window[1] & goes_on) << first;
  }

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

  // Gives the number of windows of slot 0. `offsets`: out, bytes from the first block to the
  // window.
  static int ListWindows(PacketPlanes& planes, std::int32_t* offsets) noexcept {
    int count = 0;
    int first_slots = 0;
    for (int slot = 0; slot < kEchoSlots; ++slot) {
      for (int pixel = 0; pixel < kPixels; ++pixel) {
        // Always listed, and overwritten by the next one if not wanted: no branch to mispredict.
        planes.window[count] = slot * kSlotStep + pixel;
        offsets[count] = pixel * raw_packet::kBlockBytes + kWindowByte[slot];
        count += static_cast<int>(planes.windows_of_pixels[slot] >> pixel & 1U);
      }
      if (slot == 0) first_slots = count;
    }
    planes.window_count = count;
    return first_slots;
  }

  // The W windows from `first` on. Idle lanes repeat the first one.
  static void TakeWindows(const std::uint8_t* blocks, const std::int32_t* peak_addr,
                          std::int32_t* offsets, int first_slots, int first, PacketPlanes& planes,
                          echo_computation::WindowLanes<W>& in) noexcept {
    for (int i = planes.window_count; i < first + W; ++i) {
      planes.window[i] = planes.window[first];
      offsets[i] = offsets[first];
    }
    in.is_first_slot = Iota() < first_slots - first;
    ReadSamples(blocks, offsets + first, in);
    const Int window = V::Load(planes.window + first);
    const Int pixel = window & (kSlotStep - 1);
    const Int first_bin = V::Select(in.is_first_slot, V::Pick(peak_addr, pixel),
                                    V::Pick(peak_addr + kSlotStep, pixel));
    V::Store(planes.peak_addr + first, first_bin);
    in.first_bin = V::ToFloat(first_bin);
    in.noise = V::Pick(planes.noise, pixel);
    in.baseline = V::Pick(planes.baseline, pixel);
    in.detect_threshold = V::Pick(planes.detect_threshold, pixel);
  }

  // All but the bin of the window's beginning, which stands there already.
  static void StoreEchoes(const echo_computation::EchoLanes<W>& echo, int first,
                          PacketPlanes& planes) noexcept {
    V::Store(planes.dist_raw + first, echo.dist_raw);
    V::Store(planes.refl_raw + first, Float{});
    V::Store(planes.cogh + first, echo.cogh);
    V::Store(planes.cogw + first, echo.cogw);
    V::Store(planes.cogw_high + first, echo.cogw_high);
    V::Store(planes.waveform_rms_ratio + first, echo.waveform_rms_ratio);
    V::Store(planes.cogw_flag + first, echo.cogw_flag);
    V::Store(planes.peak + first, echo.peak);
    V::Store(planes.peak_ratio + first, echo.peak_ratio);
    V::Store(planes.power + first, Float{});
    V::Store(planes.window_noise + first, echo.noise);
    V::Store(planes.window_baseline + first, echo.baseline);
    V::Store(planes.change_noise_noise_append + first, echo.change_noise_noise_append);
    V::Store(planes.highRefl + first, echo.highRefl);
    V::Store(planes.afterPulse + first, Int{});
    V::Store(planes.detect_pass + first, echo.detect_pass);
  }

  // Also of windows without a pulse.
  static void KeepBins(const PacketContext& context, const std::uint8_t* blocks,
                       LidarPoint* points) noexcept {
    for (int pixel = 0; pixel < kPixels; ++pixel) {
      const std::uint8_t* block = blocks + pixel * raw_packet::kBlockBytes;
      std::uint16_t samples[raw_packet::kSamplesPerBlock];
      UnpackBlock(block, samples);
      for (int slot = 0; slot < context.echo_count; ++slot) {
        if (samples[raw_packet::kPeakAddrSample + slot] > raw_packet::kMaxPeakAddr) continue;
        const auto* window = samples + raw_packet::kWindowSample + raw_packet::kWindowStride * slot;
        __builtin_memcpy(&points[pixel].echoes[slot].bins, window,
                         sizeof(points[pixel].echoes[slot].bins));
      }
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
