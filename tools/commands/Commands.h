#pragma once

#include "media/Input.h"
#include "terminal/Failure.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>

namespace tio::tool {

/// What the command line says, whatever the command.
struct Program {
    bool quiet = false;
    bool verbose = false;
    InputOptions input;
    std::function<ExitCode()> command; ///< set by the command that was named
};

/// The first argument of a command, which says what it reads.
struct InputArgument {
    std::string name = "URL";
    std::string description = "Clip: a file, or an rtsp:// URL";
};

/// Adds a command with the arguments that all of them have: the input, --quiet and --verbose.
CLI::App& addCommand(CLI::App& app, Program& program, const std::string& name,
                     const std::string& description, std::function<ExitCode()> run,
                     const InputArgument& input = {});

/// Adds --index FILE to a command that can make use of a stored index.
CLI::Option* addIndexOption(CLI::App& command, Program& program, const std::string& description);

/// Accepts whole numbers from `least` on. They end at 2^62, so that two of them can be added.
[[nodiscard]] CLI::Validator atLeast(int64_t least);

/// One function per command, each in a source file of its name.
void addInfoCommand(CLI::App& app, Program& program);
void addFramesCommand(CLI::App& app, Program& program);
void addIndexCommand(CLI::App& app, Program& program);
void addVerifyCommand(CLI::App& app, Program& program);
void addRemuxCommand(CLI::App& app, Program& program);
void addTranscodeCommand(CLI::App& app, Program& program);
void addImageCommand(CLI::App& app, Program& program);
void addSheetCommand(CLI::App& app, Program& program);
void addSoundCommand(CLI::App& app, Program& program);
void addWaveCommand(CLI::App& app, Program& program);
void addNalsCommand(CLI::App& app, Program& program);

} // namespace tio::tool
