#include "exact/index/indexMatch.h"

#include "base/checks.h"

#include <TARN/videoio/IndexMismatch.h>

namespace tio::ffmpeg {

// Out of line for the same reason as that of Exception.
IndexMismatch::~IndexMismatch() = default;

namespace detail {

IndexMatch matchOf(const SourceIdentity& identity, SourceBytes& bytes) {
    bytes.requireKnown();
    switch (identity.compareWith(bytes)) {
    case SourceIdentity::Likeness::Same:
        return IndexMatch::Fresh;
    case SourceIdentity::Likeness::Changed:
        return IndexMatch::Stale;
    case SourceIdentity::Likeness::Other:
        break;
    }
    return IndexMatch::Foreign;
}

void requireSameSource(const SourceIdentity& identity, SourceBytes& bytes,
                       const std::string& name) {
    if (!identity.isKnown() || !bytes.areKnown())
        return;
    const SourceIdentity::Likeness likeness = identity.compareWith(bytes);
    if (likeness != SourceIdentity::Likeness::Same)
        failMismatch(name, likeness == SourceIdentity::Likeness::Changed);
}

void failMismatch(const std::string& name, bool hasChanged) {
    const std::string text = "The index is not that of \"" + name + "\"" +
                             (hasChanged ? ", which has changed since" : "");
    logFailure(text);
    throw IndexMismatch(text);
}

} // namespace detail

} // namespace tio::ffmpeg
