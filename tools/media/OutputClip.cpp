#include "media/OutputClip.h"

#include "terminal/Failure.h"

namespace tio::tool {

OutputClip::OutputClip(const std::string& name)
    : path(name), file(name), output(write([this] {
          file.makeWay();
          return std::make_shared<ffmpeg::OutputFormatContext>(file.pathToWrite());
      })) {}

void OutputClip::publish() {
    if (!output->readyForPackets())
        throw Failure(ExitCode::Output, path, "nothing was written");
    write([this] { output->finish(); });
    output.reset();
    file.publish();
}

} // namespace tio::tool
