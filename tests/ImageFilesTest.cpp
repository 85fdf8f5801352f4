// Image files: exact 16-bit round trips, the flip between file rows and host rows, colour kept as
// it is under any alpha, and the formats refused.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <filesystem>

#include "app/AppError.h"
#include "app/ImageFiles.h"
#include "host/App.h"
#include "host/Parameters.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;

namespace {

HostRef<Image> Ramp(int w, int h) {
    HostRef<Image> image(GetApp()->Images().Take(w, h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint16_t* p = image->Row(y) + x * 4;
            p[0] = static_cast<uint16_t>(x * 8191 + y);
            p[1] = static_cast<uint16_t>(65535 - x * 1000 - y * 7);
            p[2] = static_cast<uint16_t>(y * 20000 + 3);
            p[3] = static_cast<uint16_t>((x + y) % 3 == 0 ? 0 : 40000 + x);  // some fully clear
        }
    return image;
}

TEST(ImageFilesTest, SixteenBitFilesRoundTripExactlyAndFlipRows) {
    fs::path dir = ScratchDir("crate07-imagefiles");
    fs::create_directories(dir);
    HostRef<Image> ramp = Ramp(5, 3);
    for (const char* name : {"r.png", "r.tif", "r.tiff"}) {
        std::string path = (dir / name).string();
        SaveImageFile(*ramp.get(), path);
        HostRef<Image> back(LoadImageFile(path));
        ASSERT_EQ(back->width, 5);
        ASSERT_EQ(back->height, 3);
        for (int y = 0; y < 3; ++y)
            for (int i = 0; i < 20; ++i)
                EXPECT_EQ(back->Row(y)[i], ramp->Row(y)[i]) << name;
        // The file's first scanline is the host's top row (row height - 1).
        auto in = OIIO::ImageInput::open(path);
        ASSERT_TRUE(in);
        std::vector<uint16_t> top(5 * 4);
        ASSERT_TRUE(in->read_scanline(0, 0, OIIO::TypeDesc::UINT16, top.data()));
        EXPECT_EQ(top[3], ramp->Row(2)[3]) << name;  // alpha, which no reader alters
        in->close();
    }
    // Half floats keep samples to within their precision.
    std::string exr = (dir / "r.exr").string();
    SaveImageFile(*ramp.get(), exr);
    HostRef<Image> back(LoadImageFile(exr));
    for (int i = 0; i < 20; ++i)
        EXPECT_NEAR(back->Row(1)[i], ramp->Row(1)[i], 40);
    // No temporary file is left.
    for (const auto& entry : fs::directory_iterator(dir))
        EXPECT_EQ(entry.path().filename().string().rfind(".", 0), std::string::npos);
    EXPECT_THROW(SaveImageFile(*ramp.get(), (dir / "r.bmp").string()), AppError);
    // A file is written beside the target and renamed over it in one step: another name of the
    // old file (a hard link) keeps the old picture.
    const std::string png = (dir / "r.png").string(), other = (dir / "other.png").string();
    fs::create_hard_link(png, other);
    SaveImageFile(*Ramp(2, 2).get(), png);
    EXPECT_EQ(HostRef<Image>(LoadImageFile(other))->width, 5);
    EXPECT_EQ(HostRef<Image>(LoadImageFile(png))->width, 2);
    fs::remove_all(dir);
}

}  // namespace
