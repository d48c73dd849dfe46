#include "input_tools.h"

#include <cmath>

#include "agent_texts.h"
#include "demo_markers.h"
#include "key_names.h"

namespace quillo::agent::input_tools {

// The screenshot's size now; the shared source's absence is the error.
Result<Size> screenshotSize(Studio& studio) {
    Json status = studio.captureStatus();
    if (status["screenshotSize"].is_null()) {
        return AppError(texts::kNoSource);
    }
    return Size{status["screenshotSize"]["width"].get<double>(),
                status["screenshotSize"]["height"].get<double>()};
}

// A point of the arguments `xName`, `yName`, inside the screenshot.
Result<Point> screenshotPoint(const Arguments& args, Size size, const std::string& xName,
                              const std::string& yName) {
    TRY_ASSIGN(x, args.number(xName));
    TRY_ASSIGN(y, args.number(yName));
    if (!(x >= 0 && x < size.width && y >= 0 && y < size.height)) {
        return AppError(xName + " and " + yName + " must lie inside the screenshot (0–" +
                        std::to_string(static_cast<int>(size.width) - 1) + ", 0–" +
                        std::to_string(static_cast<int>(size.height) - 1) + " pixels).");
    }
    return Point{x, y};
}

Result<std::vector<uint32_t>> modifierKeysyms(const Arguments& args) {
    TRY_ASSIGN(names, args.strings("modifiers"));
    std::vector<uint32_t> keysyms;
    for (const std::string& name : names) {
        auto keysym = keysymForModifier(name);
        if (!keysym) {
            return AppError("Unknown modifier “" + name +
                            "”. Use command, control, option, alt, shift, or super.");
        }
        keysyms.push_back(*keysym);
    }
    return keysyms;
}

size_t decodeLength(const std::string& text) {
    size_t count = 0;
    for (unsigned char c : text) {
        count += (c & 0xc0) != 0x80;  // every byte but a continuation starts a character
    }
    return count;
}

Result<Content> uiElements(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(limit, args.optionalInteger("limit"));
    TRY_ASSIGN(filter, args.optionalString("filter"));
    if (limit && (*limit < 1 || *limit > 2000)) {
        return AppError("limit must be between 1 and 2000.");
    }
    TRY_ASSIGN(elements, context.studio->uiElements(static_cast<size_t>(limit.value_or(200)),
                                                    filter.value_or("")));
    return Content{jsonItem(elements)};
}

Result<Content> click(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(size, screenshotSize(*context.studio));
    TRY_ASSIGN(at, screenshotPoint(args, size, "x", "y"));
    TRY_ASSIGN(button, args.optionalString("button"));
    if (button && *button != "left" && *button != "right") {
        return AppError("button must be left or right.");
    }
    TRY_ASSIGN(count, args.optionalInteger("count"));
    if (count && (*count < 1 || *count > 3)) {
        return AppError("count must be 1, 2, or 3.");
    }
    TRY_ASSIGN(held, modifierKeysyms(args));
    TRY_ASSIGN(done, context.studio->click(at, button == "right" ? 3 : 1,
                                           static_cast<int>(count.value_or(1)), held));
    return Content{jsonItem(done)};
}

Result<Content> movePointer(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(size, screenshotSize(*context.studio));
    TRY_ASSIGN(to, screenshotPoint(args, size, "x", "y"));
    TRY_ASSIGN(duration, args.optionalNumber("duration"));
    if (duration && !(*duration >= 0 && *duration <= 3)) {
        return AppError("duration must be between 0 and 3 seconds.");
    }
    TRY_ASSIGN(done, context.studio->movePointer(to, duration.value_or(0.25)));
    return Content{jsonItem(done)};
}

Result<Content> drag(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(size, screenshotSize(*context.studio));
    TRY_ASSIGN(from, screenshotPoint(args, size, "from_x", "from_y"));
    TRY_ASSIGN(to, screenshotPoint(args, size, "to_x", "to_y"));
    if (std::hypot(to.x - from.x, to.y - from.y) < 1) {
        return AppError("A drag needs two different points.");
    }
    TRY_ASSIGN(steps, args.optionalInteger("steps"));
    if (steps && (*steps < 1 || *steps > 200)) {
        return AppError("steps must be between 1 and 200.");
    }
    TRY_ASSIGN(done, context.studio->drag(from, to, static_cast<int>(steps.value_or(20))));
    return Content{jsonItem(done)};
}

Result<Content> scroll(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(size, screenshotSize(*context.studio));
    TRY_ASSIGN(at, screenshotPoint(args, size, "x", "y"));
    TRY_ASSIGN(deltaY, args.number("delta_y"));
    TRY_ASSIGN(deltaX, args.number("delta_x"));
    if (std::abs(deltaX) > 100000 || std::abs(deltaY) > 100000) {
        return AppError("Scroll at most 100000 pixels at a time.");
    }
    TRY_ASSIGN(done, context.studio->scroll(at, deltaX, deltaY));
    return Content{jsonItem(done)};
}

Result<Content> typeText(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(text, args.string("text"));
    if (text.empty()) {
        return AppError("Give some text to type.");
    }
    TRY_ASSIGN(wpm, args.optionalNumber("wpm"));
    TRY_ASSIGN(delayMs, args.optionalNumber("delay_ms"));
    // Out-of-range speeds are read as the nearest the typing rule allows.
    double delay = typingDelay(delayMs, wpm, decodeLength(text));
    TRY_ASSIGN(size, screenshotSize(*context.studio));
    (void)size;
    TRY_ASSIGN(done, context.studio->typeText(text, delay));
    return Content{jsonItem(done)};
}

Result<uint32_t> keyKeysym(const std::string& name) {
    auto keysym = keysymForKey(name);
    if (!keysym) {
        return AppError("Unknown key “" + name +
                        "”. Use a letter, digit, or one of: " + texts::kNamedKeys);
    }
    return *keysym;
}

Result<Content> pressKey(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(name, args.string("key"));
    TRY_ASSIGN(keysym, keyKeysym(name));
    TRY_ASSIGN(held, modifierKeysyms(args));
    TRY_ASSIGN(size, screenshotSize(*context.studio));
    (void)size;
    TRY_ASSIGN(done, context.studio->pressKey(keysym, held));
    return Content{jsonItem(done)};
}

}  // namespace quillo::agent::input_tools
