#pragma once

/// @file
/// Everything that the library offers.

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FormatContext.h>
#include <TARN/videoio/Frame.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/PacketDecoder.h>
#include <TARN/videoio/Stream.h>
#include <TARN/videoio/StreamDecoder.h>
#include <TARN/videoio/Types.h>
#include <TARN/videoio/VideoPacketDecoder.h>
#include <TARN/videoio/VideoStreamDecoder.h>
