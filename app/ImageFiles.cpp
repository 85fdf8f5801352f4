#include "app/ImageFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "app/AppError.h"
#include "app/Limits.h"
#include "host/App.h"
#include "host/Parameters.h"

namespace fs = std::filesystem;

namespace {

std::string Extension(const std::string& path) {
    std::string ext = fs::path(path).extension().string();
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

// The image libraries write their own complaints to the standard error before they give up; ours
// say the same on one line. For the life of the scope the standard error goes nowhere.
class QuietLibraries {
  public:
    QuietLibraries() {
        std::fflush(stderr);
        saved_ = ::dup(2);
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (saved_ >= 0 && null >= 0) ::dup2(null, 2);
        if (null >= 0) ::close(null);
    }
    ~QuietLibraries() {
        if (saved_ < 0) return;
        std::fflush(stderr);
        ::dup2(saved_, 2);
        ::close(saved_);
    }
    QuietLibraries(const QuietLibraries&) = delete;
    QuietLibraries& operator=(const QuietLibraries&) = delete;

  private:
    int saved_ = -1;
};

std::string OneLine(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at))
        text.replace(at, 1, "; ");
    return text;
}

}  // namespace

void CheckOutputFormat(const std::string& path) {
    std::string ext = Extension(path);
    if (ext == ".png" || ext == ".tif" || ext == ".tiff" || ext == ".exr") return;
    throw AppError("cannot write '" + path + "': unsupported output format '" + ext +
                   "' (use .png, .tif, .tiff or .exr)");
}

Image* LoadImageFile(const std::string& path) {
    CheckRegularFile(path, "image");
    // Colour is taken as the file holds it: no premultiplication on the way in or out.
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    QuietLibraries quiet;
    auto in = OIIO::ImageInput::open(path, &config);
    if (!in) {
        std::string why = OneLine(OIIO::geterror());
        throw AppError("cannot read image '" + path + "': " +
                       (why.empty() ? std::string("not an image OpenImageIO can read") : why));
    }
    const OIIO::ImageSpec& spec = in->spec();
    const int w = spec.width, h = spec.height, n = spec.nchannels;
    if (w <= 0 || h <= 0 || n <= 0 || spec.depth > 1 || spec.deep) {
        in->close();
        throw AppError("cannot read image '" + path + "': unsupported size or layout");
    }
    // The header alone decides: nothing is allocated for a picture beyond the limit.
    try {
        CheckPixelCount(w, h, "cannot read image '" + path + "'");
    } catch (...) {
        in->close();
        throw;
    }
    float aspect = spec.get_float_attribute("PixelAspectRatio", 1.0f);

    // Read straight into the host image: at most four channels, each pixel four samples apart,
    // the top row of the file into the host's last row (row 0 is the bottom row).
    const int used = std::min(n, 4);
    HostRef<Image> image(GetApp()->Images().Take(w, h));
    const OIIO::stride_t pixelBytes = 4 * sizeof(uint16_t);
    const OIIO::stride_t rowBytes = static_cast<OIIO::stride_t>(w) * pixelBytes;
    if (!in->read_image(0, 0, 0, used, OIIO::TypeDesc::UINT16, image->Row(h - 1), pixelBytes,
                        -rowBytes)) {
        std::string why = OneLine(in->geterror());
        in->close();
        throw AppError("cannot read image '" + path + "': " + why);
    }
    in->close();

    image->xScale = aspect > 0.0f ? aspect : 1.0;
    image->yScale = 1.0;
    if (used < 4) {
        for (int y = 0; y < h; ++y) {
            uint16_t* d = image->Row(y);
            for (int x = 0; x < w; ++x, d += 4) {
                if (used == 1) {
                    d[1] = d[2] = d[0];
                    d[3] = 65535;
                } else if (used == 2) {
                    d[3] = d[1];
                    d[1] = d[2] = d[0];
                } else {
                    d[3] = 65535;
                }
            }
        }
    }
    return image.release();
}

void SaveImageFile(const Image& image, const std::string& path) {
    CheckOutputFormat(path);
    if (image.width <= 0 || image.height <= 0)
        throw AppError("cannot write '" + path + "': the image is empty");
    const fs::path target(path);
    const fs::path dir = target.has_parent_path() ? target.parent_path() : fs::path(".");
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) {
        fs::create_directories(dir, ec);
        if (ec)
            throw AppError("cannot write '" + path + "': cannot make folder '" + dir.string() +
                           "': " + ec.message());
    }
    // Written under a temporary name in the same folder (same extension, so the format is
    // chosen the same way), then renamed over the target in one step.
    const fs::path temp = dir / ("." + target.stem().string() + ".part-" +
                                 std::to_string(::getpid()) + target.extension().string());
    const std::string ext = Extension(path);
    OIIO::ImageSpec spec(image.width, image.height, 4,
                         ext == ".exr" ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::UINT16);
    spec.alpha_channel = 3;
    spec.attribute("oiio:UnassociatedAlpha", 1);
    if (image.xScale != 1.0 || image.yScale != 1.0)
        spec.attribute("PixelAspectRatio", static_cast<float>(image.xScale / image.yScale));
    if (ext == ".exr") spec.attribute("compression", "zip");
    if (ext == ".tif" || ext == ".tiff") spec.attribute("compression", "zip");

    QuietLibraries quiet;
    auto out = OIIO::ImageOutput::create(temp.string());
    if (!out) throw AppError("cannot write '" + path + "': " + OneLine(OIIO::geterror()));
    if (!out->open(temp.string(), spec)) {
        std::string why = out->geterror();
        fs::remove(temp, ec);
        throw AppError("cannot write '" + path + "': " + OneLine(why));
    }
    // Host rows run bottom to top; the file wants the top row first, so the rows are walked
    // backwards with a negative stride.
    const size_t rowBytes = static_cast<size_t>(image.width) * 4 * sizeof(uint16_t);
    const auto* last = reinterpret_cast<const char*>(image.Row(image.height - 1));
    bool ok = out->write_image(OIIO::TypeDesc::UINT16, last, OIIO::AutoStride,
                               -static_cast<OIIO::stride_t>(rowBytes));
    std::string why = ok ? std::string() : out->geterror();
    ok = out->close() && ok;
    if (!ok) {
        if (why.empty()) why = out->geterror();
        fs::remove(temp, ec);
        throw AppError("cannot write '" + path + "': " + OneLine(why));
    }
    fs::rename(temp, target, ec);
    if (ec) {
        std::string message = ec.message();
        fs::remove(temp, ec);
        throw AppError("cannot write '" + path + "': " + message);
    }
}
