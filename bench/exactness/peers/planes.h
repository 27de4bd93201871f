#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/common.h>
#include <libavutil/crc.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

/// CRC-32, as zlib makes it, of the visible bytes of all planes in order.
inline uint32_t crcOfPlanes(const uint8_t* const planes[4], const int strides[4],
                            AVPixelFormat format, int width, int height) {
    const AVCRC* table = av_crc_get_table(AV_CRC_32_IEEE_LE);
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    uint32_t crc = UINT32_MAX;
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        const bool chroma = plane == 1 || plane == 2;
        const int rows = AV_CEIL_RSHIFT(height, chroma ? descriptor->log2_chroma_h : 0);
        const int bytes = av_image_get_linesize(format, width, plane);
        for (int row = 0; row < rows; ++row)
            crc = av_crc(table, crc, planes[plane] + row * strides[plane],
                         static_cast<size_t>(bytes));
    }
    return ~crc;
}
