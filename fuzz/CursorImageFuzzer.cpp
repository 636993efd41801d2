// Cursor images as the server pushes them on "cd": base64 text of PNG bytes,
// decoded, cached by the game controller and shown by the virtual mouse
// cursor. The first byte says whether the rest is the base64 text or the PNG
// bytes themselves.
#include "FuzzCheck.h"
#include "FuzzSession.h"

#include "vrq/control/VRQVirtualMouseCursor.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/platform/services/Crypto.h"
#include "vrq/platform/views/Image.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

// The host's wiring: a new cursor image goes to the on-screen cursor.
class CursorHost : public VRQGameControllerDelegate {
public:
    explicit CursorHost(std::shared_ptr<VRQVirtualMouseCursor> cursor)
        : m_cursor(std::move(cursor))
    {
    }
    void onCursorImageUpdated(const std::shared_ptr<const vrq::Image>& image, vrq::Rect frame) override
    {
        FUZZ_CHECK(image && image->width() > 0 && image->height() > 0);
        FUZZ_CHECK(std::isfinite(frame.origin.x) && std::isfinite(frame.origin.y));
        m_cursor->setCursorImage(image, frame);
    }

private:
    std::shared_ptr<VRQVirtualMouseCursor> m_cursor;
};

void checkImage(const std::optional<vrq::Image>& image)
{
    if (!image)
        return;
    FUZZ_CHECK(image->width() >= 1 && image->width() <= 4096);
    FUZZ_CHECK(image->height() >= 1 && image->height() <= 4096);
    FUZZ_CHECK(image->rgba().size() == std::size_t(image->width()) * std::size_t(image->height()) * 4);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    auto& session = FuzzSession::shared();
    const auto controller = session.player()->gameController();
    static auto host = [&] {
        auto cursor = std::make_shared<VRQVirtualMouseCursor>(vrq::Rect{{0, 0}, {1280, 720}}, controller);
        auto made = std::make_shared<CursorHost>(cursor);
        controller->setControlDelegate(made);
        return made;
    }();
    (void)host;

    const std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
    const bool isBase64 = (data[0] & 1) != 0;
    const std::string text = isBase64 ? rest : vrq::base64Encode(rest);
    if (const auto bytes = vrq::base64Decode(text))
        checkImage(vrq::Image::decode(*bytes));

    // The whole message, with a hotspot and size from the input's first byte.
    const double hotspot = data[0] >> 1;
    const nlohmann::json message = {{"data_type", "mouse"}, {"data_key", std::to_string(data[0] & 0x7)},
                                    {"data", text},        {"hotspotx_v2", hotspot},
                                    {"hotspoty_v2", -hotspot}, {"width_v2", 32},
                                    {"height_v2", 32}};
    controller->handleMouseCursorImageMsg(message);
    FuzzSession::runPendingMainTasks();
    return 0;
}
