// The on-screen gamepad's layout text, as a host hands it over: the models it
// becomes, and the gamepad laid out with its buttons.
#include "FuzzCheck.h"
#include "FuzzSession.h"

#include "vrq/VRQVKey/button/VRQVBaseButton.h"
#include "vrq/VRQVKey/button/VRQVGamePadFactory.h"
#include "vrq/VRQVKey/button/VRQVKeyGamepad.h"
#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

bool isFinite(vrq::Rect frame)
{
    return std::isfinite(frame.origin.x) && std::isfinite(frame.origin.y) && std::isfinite(frame.size.width)
           && std::isfinite(frame.size.height);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto models = VRQVGamePadFactory::parseJsonCfg(text);
    if (models) {
        FUZZ_CHECK(models->size() <= VRQVGamePadFactory::kMaxButtons);
        for (const auto& model : *models) {
            FUZZ_CHECK(model != nullptr);
            // A model written back and read again is the same model.
            const auto written = model->toDictionary();
            const auto copy = model->copy();
            FUZZ_CHECK(copy && copy->toDictionary() == written);
        }
    }

    static const auto controller = FuzzSession::shared().player()->gameController();
    // Each width change lays the buttons out again; the width comes from the input.
    const double width = 320 + double(size % 1600);
    const auto gamepad = VRQVKeyGamepad::initWithFrame({{0, 0}, {width, width * 9 / 16}}, controller);
    gamepad->showKeyGamepad(text);
    gamepad->layoutSubviews();
    FUZZ_CHECK(gamepad->buttonList().size() <= VRQVGamePadFactory::kMaxButtons);
    FUZZ_CHECK(gamepad->modelList().size() == (models ? models->size() : 0));
    for (const auto& button : gamepad->buttonList())
        FUZZ_CHECK(isFinite(button->frame()));
    FuzzSession::runPendingMainTasks();
    return 0;
}
