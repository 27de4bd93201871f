#include "terminal/Failure.h"

#include <cctype>
#include <cstdio>
#include <new>

namespace tio::tool {

std::string oneLine(std::string text) {
    for (char& character : text) {
        if (std::iscntrl(static_cast<unsigned char>(character)) != 0)
            character = ' ';
    }
    return text;
}

std::string reasonOf(const std::exception& error, const std::string& file) {
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr)
        return "Out of memory";
    std::string text = error.what();
    if (const size_t place = text.rfind(" @ ..\\"); place != std::string::npos)
        text.resize(place);
    const std::string quoted = '"' + file + '"';
    for (const std::string& mention : {" of " + quoted, " in " + quoted, quoted + ": "})
        if (const size_t place = text.find(mention); place != std::string::npos)
            text.erase(place, mention.size());
    if (const std::string subject = quoted + ' '; text.rfind(subject, 0) == 0)
        text.erase(0, subject.size());
    const std::string name = ": " + file;
    const bool endsWithName = text.size() > name.size() &&
                              text.compare(text.size() - name.size(), name.size(), name) == 0;
    if (endsWithName)
        text.resize(text.size() - name.size());
    return text;
}

void printError(const std::string& text) {
    const std::string line = "tarn-videoio: " + oneLine(text) + '\n';
    std::fputs(line.c_str(), stderr);
}

} // namespace tio::tool
