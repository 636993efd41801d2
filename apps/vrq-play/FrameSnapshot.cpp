#include "FrameSnapshot.h"

#include <spng.h>

#include <cstdio>
#include <memory>

std::optional<std::string> writeFramePng(const vrq::rtc::VideoFrame& frame, const std::filesystem::path& path)
{
    if (frame.width() <= 0 || frame.height() <= 0)
        return "the frame is empty";
    // The one place the picture becomes RGBA: a snapshot, not the frame path.
    return writeRgbaPng(frame.width(), frame.height(), frame.toRgba(), path);
}

std::optional<std::string> writeRgbaPng(int width, int height, const std::vector<std::uint8_t>& rgba,
                                        const std::filesystem::path& path)
{
    if (width <= 0 || height <= 0 || rgba.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4)
        return "the picture is empty";
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "wb"), std::fclose);
    if (!file)
        return "cannot open " + path.string() + " for writing";
    std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> context(spng_ctx_new(SPNG_CTX_ENCODER), spng_ctx_free);
    if (!context)
        return "no PNG encoder";
    spng_ihdr header{};
    header.width = static_cast<std::uint32_t>(width);
    header.height = static_cast<std::uint32_t>(height);
    header.bit_depth = 8;
    header.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    int result = spng_set_png_file(context.get(), file.get());
    if (result == 0)
        result = spng_set_ihdr(context.get(), &header);
    if (result == 0)
        result = spng_encode_image(context.get(), rgba.data(), rgba.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    if (result != 0)
        return std::string("PNG encoding failed: ") + spng_strerror(result);
    // The encoder writes through the FILE; its buffer must reach the disk intact.
    context.reset();
    if (std::fclose(file.release()) != 0)
        return "cannot finish writing " + path.string();
    return std::nullopt;
}
