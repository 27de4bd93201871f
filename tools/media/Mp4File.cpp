#include "media/Mp4File.h"

#include "terminal/Failure.h"

namespace tio::tool {

Mp4File::Mp4File(const std::string& name)
    : path(name), file(name), output(write([this] {
          file.makeWay();
          return std::make_shared<ffmpeg::OutputFormatContext>(file.pathToWrite());
      })) {}

void Mp4File::publish() {
    if (!output->readyForPackets())
        throw Failure(ExitCode::Output, path, "nothing was written");
    write([this] { output->finish(); });
    output.reset();
    file.publish();
}

} // namespace tio::tool
