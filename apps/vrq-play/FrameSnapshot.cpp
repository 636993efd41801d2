#include "FrameSnapshot.h"

#include <spng.h>

#include <cstdio>
#include <memory>

std::optional<std::string> writeFramePng(const vrq::rtc::VideoFrame& frame, const std::filesystem::path& path)
{
    const std::size_t expected = static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height) * 4;
    if (frame.width <= 0 || frame.height <= 0 || frame.rgba.size() != expected)
        return "the frame is empty or its size does not match its pixels";
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "wb"), std::fclose);
    if (!file)
        return "cannot open " + path.string() + " for writing";
    std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> context(spng_ctx_new(SPNG_CTX_ENCODER), spng_ctx_free);
    if (!context)
        return "no PNG encoder";
    spng_ihdr header{};
    header.width = static_cast<std::uint32_t>(frame.width);
    header.height = static_cast<std::uint32_t>(frame.height);
    header.bit_depth = 8;
    header.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    int result = spng_set_png_file(context.get(), file.get());
    if (result == 0)
        result = spng_set_ihdr(context.get(), &header);
    if (result == 0)
        result = spng_encode_image(context.get(), frame.rgba.data(), frame.rgba.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    if (result != 0)
        return std::string("PNG encoding failed: ") + spng_strerror(result);
    // The encoder writes through the FILE; its buffer must reach the disk intact.
    context.reset();
    if (std::fclose(file.release()) != 0)
        return "cannot finish writing " + path.string();
    return std::nullopt;
}
