// ICU is asked about aliases beyond ASCII alone: both have to say the same of ASCII.
#include "tools/mdomain/ascii_skeleton.h"

#include <gtest/gtest.h>
#include <unicode/uspoof.h>

namespace {

TEST(AsciiSkeleton, IsThatOfIcu) {
  UErrorCode error = U_ZERO_ERROR;
  USpoofChecker* const checker = uspoof_open(&error);
  std::string all = "rnm";
  for (char c = 1; c > 0 && c < 0x7F; ++c) {
    all += c;
  }
  char skeleton[512];
  const int32_t size = uspoof_getSkeletonUTF8(
      checker, 0, all.data(), static_cast<int32_t>(all.size()), skeleton, sizeof skeleton, &error);
  ASSERT_FALSE(U_FAILURE(error));
  EXPECT_EQ(mdomain::AsciiSkeleton(all), std::string(skeleton, static_cast<size_t>(size)));
  uspoof_close(checker);
}

}  // namespace
