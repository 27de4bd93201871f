#pragma once

#include <TARN/core/Rational.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <string>
#include <utility>
#include <vector>

namespace tio::python {

namespace py = pybind11;

using Seconds = tio::Rational<1, int64_t>;

/// Values of the library, and the words that Python has for them.
template <typename Value>
using Words = std::initializer_list<std::pair<Value, const char*>>;

/// @returns the last word for a value that has none
template <typename Value>
[[nodiscard]] const char* wordOf(Value value, Words<Value> words) {
    const auto* found = std::find_if(words.begin(), std::prev(words.end()),
                                     [&](const auto& entry) { return entry.first == value; });
    return found->second;
}

/// @throws pybind11::value_error for a word that means nothing
template <typename Value>
[[nodiscard]] Value valueOf(const std::string& word, Words<Value> words) {
    for (const auto& [value, known] : words) {
        if (word == known)
            return value;
    }
    throw py::value_error("there is no \"" + word + "\"");
}

/// Reads a setting where Python gave one that is not None.
template <typename Value>
void take(const py::dict& settings, const char* name, Value& into) {
    if (settings.contains(name) && !settings[name].is_none())
        into = settings[name].cast<Value>();
}

/// The same of one that is told by a word.
template <typename Value>
void take(const py::dict& settings, const char* name, Value& into, Words<Value> words) {
    std::string word;
    take(settings, name, word);
    if (!word.empty())
        into = valueOf(word, words);
}

/// Bytes of the library's as Python has them.
template <typename Bytes>
[[nodiscard]] py::bytes bytesOf(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; // NOLINT: as Python has it
}

[[nodiscard]] inline std::vector<uint8_t> contentOf(const py::bytes& bytes) {
    const std::string text = bytes;
    return {text.begin(), text.end()};
}

/// Bytes as text, whatever they hold: what is no UTF-8 survives the way back into a path.
[[nodiscard]] inline py::str textOf(const std::string& bytes,
                                    const char* errors = "surrogateescape") {
    PyObject* text =
        PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), errors);
    if (text == nullptr)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(text);
}

} // namespace tio::python

/// A fraction is (numerator, denominator) in Python.
template <>
struct pybind11::detail::type_caster<tio::python::Seconds> {
    using Pair = std::pair<int64_t, int64_t>;
    PYBIND11_TYPE_CASTER(tio::python::Seconds, make_caster<Pair>::name);

    bool load(handle from, bool convert) {
        make_caster<Pair> pair;
        if (!pair.load(from, convert))
            return false;
        const Pair found = cast_op<Pair>(pair);
        value = tio::python::Seconds(found.first, found.second);
        return true;
    }

    static handle cast(const tio::python::Seconds& from, return_value_policy policy,
                       handle parent) {
        return make_caster<Pair>::cast(Pair(from.numerator, from.denominator), policy, parent);
    }
};
