#pragma once

/// @file
/// Everything that the library offers.

#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/AudioPacketDecoder.h>
#include <TARN/videoio/AudioPacketEncoder.h>
#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/AudioStreamEncoder.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FormatContext.h>
#include <TARN/videoio/Frame.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/FrameIndexOptions.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/H264Helpers.h>
#include <TARN/videoio/Image.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/OpenOptions.h>
#include <TARN/videoio/OutputFormatContext.h>
#include <TARN/videoio/OutputStream.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/PacketDecoder.h>
#include <TARN/videoio/PacketEncoder.h>
#include <TARN/videoio/PacketReader.h>
#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/Stream.h>
#include <TARN/videoio/StreamDecoder.h>
#include <TARN/videoio/StreamEncoder.h>
#include <TARN/videoio/Types.h>
#include <TARN/videoio/Versions.h>
#include <TARN/videoio/VideoPacketDecoder.h>
#include <TARN/videoio/VideoPacketEncoder.h>
#include <TARN/videoio/VideoStreamDecoder.h>
#include <TARN/videoio/VideoStreamEncoder.h>
#include <TARN/videoio/WriteImage.h>
