// Program stream headers, bit by bit: one list of fields a header, in the order of the standard's table
// (ISO/IEC 13818-1), walked by a bit writer to pack and by a bit reader to unpack.
//
// A line names the bits of a value that come next: `bits.Next(value, high, low)`.  A value that the
// standard cuts by marker bits, or that lies little-endian, is named in several lines.  The values the
// members start with are the format's own; a packer sets what differs from frame to frame.
#pragma once

#include <cstdint>

#include "libRecordFile.h"

namespace record_file {

class BitWriter {
  public:
    explicit BitWriter(void* out) : out_(static_cast<uint8_t*>(out)) {}

    template <class Value>
    void Next(const Value& value, int high, int low) {
        const int width = high - low + 1;
        pending_ = pending_ << width | (uint64_t{value} >> low & ((uint64_t{1} << width) - 1));
        for (count_ += width; count_ >= 8; count_ -= 8) {
            *out_++ = static_cast<uint8_t>(pending_ >> (count_ - 8));
        }
    }

  private:
    uint8_t* out_;
    uint64_t pending_ = 0;  // its low `count_` bits are not written yet
    int count_ = 0;
};

class BitReader {
  public:
    explicit BitReader(const void* in) : in_(static_cast<const uint8_t*>(in)) {}

    template <class Value>
    void Next(Value& value, int high, int low) {
        const int width = high - low + 1;
        const uint64_t mask = (uint64_t{1} << width) - 1;
        for (; count_ < width; count_ += 8) {
            pending_ = pending_ << 8 | *in_++;
        }
        count_ -= width;
        value = static_cast<Value>((uint64_t{value} & ~(mask << low)) | (pending_ >> count_ & mask) << low);
    }

  private:
    const uint8_t* in_;
    uint64_t pending_ = 0;  // its low `count_` bits are not read yet
    int count_ = 0;
};

// Markers are kept one by one, so that unpacking and packing again leaves a header as it was.
using Markers = uint8_t;

// clang-format off

struct PackHeader {                              // pack_header(), 2.5.3.4
    uint32_t pack_start_code = 0x000001BA;
    uint8_t  mpeg2 = 0b01;
    uint64_t system_clock_reference_base = 0;    // 90 kHz, 33 bits
    uint16_t system_clock_reference_extension = 0;
    uint32_t program_mux_rate = 0;               // units of 50 bytes a second
    uint8_t  reserved = 0x1F;
    uint8_t  pack_stuffing_length = 4;
    uint32_t frame_time = 0;                     // s since 1970 UTC, in the place of the stuffing bytes
    Markers  marker = 0xFF;
};

template <class Bits, class Header>              // PackHeader, const or not
void WalkPackHeader(Bits& bits, Header& h) {
    bits.Next(h.pack_start_code, 31, 0);
    bits.Next(h.mpeg2, 1, 0);
    bits.Next(h.system_clock_reference_base, 32, 30);
    bits.Next(h.marker, 0, 0);
    bits.Next(h.system_clock_reference_base, 29, 15);
    bits.Next(h.marker, 1, 1);
    bits.Next(h.system_clock_reference_base, 14, 0);
    bits.Next(h.marker, 2, 2);
    bits.Next(h.system_clock_reference_extension, 8, 0);
    bits.Next(h.marker, 3, 3);
    bits.Next(h.program_mux_rate, 21, 0);
    bits.Next(h.marker, 4, 4);
    bits.Next(h.marker, 5, 5);
    bits.Next(h.reserved, 4, 0);
    bits.Next(h.pack_stuffing_length, 2, 0);
    bits.Next(h.frame_time, 7, 0);
    bits.Next(h.frame_time, 15, 8);
    bits.Next(h.frame_time, 23, 16);
    bits.Next(h.frame_time, 31, 24);
}

struct SystemHeader {                            // system_header(), 2.5.3.6
    uint32_t system_header_start_code = 0x000001BB;
    uint16_t header_length = 12;
    uint32_t rate_bound = 0;                     // units of 50 bytes a second
    uint8_t  audio_bound = 1;
    uint8_t  fixed_flag = 0;
    uint8_t  CSPS_flag = 0;
    uint8_t  system_audio_lock_flag = 1;
    uint8_t  system_video_lock_flag = 1;
    uint8_t  video_bound = 1;
    uint8_t  packet_rate_restriction_flag = 0;
    uint8_t  reserved_bits = 0x7F;
    uint8_t  video_stream_id = 0xE0;
    uint8_t  video_fixed = 0b11;
    uint8_t  video_buffer_bound_scale = 1;       // units of 1024 bytes
    uint16_t video_buffer_size_bound = 0;
    uint8_t  audio_stream_id = 0xC0;
    uint8_t  audio_fixed = 0b11;
    uint8_t  audio_buffer_bound_scale = 0;       // units of 128 bytes
    uint16_t audio_buffer_size_bound = 0;
    Markers  marker = 0xFF;
};

template <class Bits, class Header>
void WalkSystemHeader(Bits& bits, Header& h) {
    bits.Next(h.system_header_start_code, 31, 0);
    bits.Next(h.header_length, 15, 0);
    bits.Next(h.marker, 0, 0);
    bits.Next(h.rate_bound, 21, 0);
    bits.Next(h.marker, 1, 1);
    bits.Next(h.audio_bound, 5, 0);
    bits.Next(h.fixed_flag, 0, 0);
    bits.Next(h.CSPS_flag, 0, 0);
    bits.Next(h.system_audio_lock_flag, 0, 0);
    bits.Next(h.system_video_lock_flag, 0, 0);
    bits.Next(h.marker, 2, 2);
    bits.Next(h.video_bound, 4, 0);
    bits.Next(h.packet_rate_restriction_flag, 0, 0);
    bits.Next(h.reserved_bits, 6, 0);
    bits.Next(h.video_stream_id, 7, 0);
    bits.Next(h.video_fixed, 1, 0);
    bits.Next(h.video_buffer_bound_scale, 0, 0);
    bits.Next(h.video_buffer_size_bound, 12, 0);
    bits.Next(h.audio_stream_id, 7, 0);
    bits.Next(h.audio_fixed, 1, 0);
    bits.Next(h.audio_buffer_bound_scale, 0, 0);
    bits.Next(h.audio_buffer_size_bound, 12, 0);
}

struct StreamMap {                               // program_stream_map(), 2.5.4.1
    uint32_t packet_start_code = 0x000001BC;     // prefix and map_stream_id
    uint16_t program_stream_map_length = 42;
    uint8_t  current_next_indicator = 1;
    uint8_t  reserved = 0b11;
    uint8_t  program_stream_map_version = 1;
    uint8_t  reserved_and_marker = 0xFF;
    uint16_t program_stream_info_length = 0;
    uint16_t elementary_stream_map_length = 32;
    uint8_t  video_stream_type = 0;
    uint8_t  video_elementary_stream_id = 0xE0;
    uint16_t video_info_length = 12;             // descriptor bytes, our own: little-endian parameters
    uint16_t vedio_width = 0;                    // pixels
    uint16_t vedio_height = 0;
    uint16_t vedio_Bit_rate = 0;
    uint8_t  vedio_frame_rate = 0;
    uint64_t video_tail = 0x081FFEF087;
    uint8_t  audio_stream_type = 0;
    uint8_t  audio_elementary_stream_id = 0xC0;
    uint16_t audio_info_length = 12;             // descriptor bytes, our own
    uint16_t audio_samplerate = 0;               // Hz
    uint16_t audio_bitrate = 0;
    uint64_t audio_tail = 0x0102030405050708;
    uint32_t CRC_32 = 0;
};

template <class Bits, class Header>
void WalkStreamMap(Bits& bits, Header& h) {
    bits.Next(h.packet_start_code, 31, 0);
    bits.Next(h.program_stream_map_length, 15, 0);
    bits.Next(h.current_next_indicator, 0, 0);
    bits.Next(h.reserved, 1, 0);
    bits.Next(h.program_stream_map_version, 4, 0);
    bits.Next(h.reserved_and_marker, 7, 0);
    bits.Next(h.program_stream_info_length, 15, 0);
    bits.Next(h.elementary_stream_map_length, 15, 0);
    bits.Next(h.video_stream_type, 7, 0);
    bits.Next(h.video_elementary_stream_id, 7, 0);
    bits.Next(h.video_info_length, 15, 0);
    bits.Next(h.vedio_width, 7, 0);
    bits.Next(h.vedio_width, 15, 8);
    bits.Next(h.vedio_height, 7, 0);
    bits.Next(h.vedio_height, 15, 8);
    bits.Next(h.vedio_Bit_rate, 7, 0);
    bits.Next(h.vedio_Bit_rate, 15, 8);
    bits.Next(h.vedio_frame_rate, 7, 0);
    bits.Next(h.video_tail, 39, 0);
    bits.Next(h.audio_stream_type, 7, 0);
    bits.Next(h.audio_elementary_stream_id, 7, 0);
    bits.Next(h.audio_info_length, 15, 0);
    bits.Next(h.audio_samplerate, 7, 0);
    bits.Next(h.audio_samplerate, 15, 8);
    bits.Next(h.audio_bitrate, 7, 0);
    bits.Next(h.audio_bitrate, 15, 8);
    bits.Next(h.audio_tail, 63, 32);
    bits.Next(h.audio_tail, 31, 0);
    bits.Next(h.CRC_32, 31, 0);
}

struct PesHeader {                               // PES_packet(), 2.4.3.6, up to the PTS
    uint32_t packet_start_code_prefix = 0x000001;
    uint8_t  stream_id = 0;
    uint16_t PES_packet_length = 0;              // bytes after this field
    uint8_t  fixed = 0b10;
    uint8_t  PES_scrambling_control = 0;
    uint8_t  PES_priority = 0;
    uint8_t  data_alignment_indicator = 0;
    uint8_t  copyright = 0;
    uint8_t  original_or_copy = 0;
    uint8_t  PTS_DTS_flags = 0b10;               // a PTS follows
    uint8_t  ESCR_flag = 0;
    uint8_t  ES_rate_flag = 0;
    uint8_t  DSM_trick_mode_flag = 0;
    uint8_t  additional_copy_info_flag = 0;
    uint8_t  PES_CRC_flag = 0;
    uint8_t  PES_extension_flag = 0;
    uint8_t  PES_header_data_length = 5;         // bytes of the PTS
};

template <class Bits, class Header>
void WalkPesHeader(Bits& bits, Header& h) {
    bits.Next(h.packet_start_code_prefix, 23, 0);
    bits.Next(h.stream_id, 7, 0);
    bits.Next(h.PES_packet_length, 15, 0);
    bits.Next(h.fixed, 1, 0);
    bits.Next(h.PES_scrambling_control, 1, 0);
    bits.Next(h.PES_priority, 0, 0);
    bits.Next(h.data_alignment_indicator, 0, 0);
    bits.Next(h.copyright, 0, 0);
    bits.Next(h.original_or_copy, 0, 0);
    bits.Next(h.PTS_DTS_flags, 1, 0);
    bits.Next(h.ESCR_flag, 0, 0);
    bits.Next(h.ES_rate_flag, 0, 0);
    bits.Next(h.DSM_trick_mode_flag, 0, 0);
    bits.Next(h.additional_copy_info_flag, 0, 0);
    bits.Next(h.PES_CRC_flag, 0, 0);
    bits.Next(h.PES_extension_flag, 0, 0);
    bits.Next(h.PES_header_data_length, 7, 0);
}

struct PresentationTime {                        // the PTS inside PES_packet(), 2.4.3.6
    uint8_t  fixed = 0b0010;
    uint64_t PTS = 0;                            // 90 kHz, 33 bits
    Markers  marker = 0xFF;
};

template <class Bits, class Header>
void WalkPresentationTime(Bits& bits, Header& h) {
    bits.Next(h.fixed, 3, 0);
    bits.Next(h.PTS, 32, 30);
    bits.Next(h.marker, 0, 0);
    bits.Next(h.PTS, 29, 15);
    bits.Next(h.marker, 1, 1);
    bits.Next(h.PTS, 14, 0);
    bits.Next(h.marker, 2, 2);
}

// clang-format on

inline constexpr int kPesLengthBase = 8;  // bytes of PES_packet_length that are header: flags, length, PTS

}  // namespace record_file
