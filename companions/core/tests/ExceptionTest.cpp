#include <TARN/core/Exception.h>

#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace {

TEST(Exception, KeepsItsMessageThroughCopies) {
    auto original = std::make_unique<tio::Exception>("no such stream");
    const tio::Exception copy = *original;
    original.reset();
    EXPECT_STREQ(copy.what(), "no such stream");
}

TEST(Exception, IsCaughtAsRuntimeError) {
    EXPECT_THROW(throw tio::Exception("text"), std::runtime_error);
}

TEST(Exception, CanBeMadeFromAString) {
    const std::string text = "from a string";
    EXPECT_EQ(tio::Exception(text).what(), text);
}

TEST(Exception, IsAssignableAndPolymorphic) {
    static_assert(std::is_nothrow_copy_assignable_v<tio::Exception>);
    static_assert(std::has_virtual_destructor_v<tio::Exception>);
    tio::Exception target("before");
    target = tio::Exception("after");
    EXPECT_STREQ(target.what(), "after");
}

} // namespace
