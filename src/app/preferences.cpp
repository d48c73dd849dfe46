#include "preferences.h"

#include <cmath>

#include "base/paths.h"

namespace quillo::app {

Preferences& Preferences::shared() {
    static PreferenceStore store(preferencesFile());
    static Preferences preferences(store);
    return preferences;
}

std::optional<std::string> Preferences::storedText(std::string_view key) const {
    std::optional<Json> value = m_store.value(key);
    if (!value || !value->is_string()) {
        return std::nullopt;
    }
    return value->get<std::string>();
}

bool Preferences::get(const PreferenceKey<bool>& key) const {
    std::optional<Json> value = m_store.value(key.name);
    return value && value->is_boolean() ? value->get<bool>() : key.fallback;
}

int64_t Preferences::get(const PreferenceKey<int64_t>& key) const {
    std::optional<Json> value = m_store.value(key.name);
    if (value && value->is_number_integer()) {
        return value->get<int64_t>();
    }
    // A whole number written with a fraction part ("30.0") still reads as that number.
    if (value && value->is_number_float()) {
        double d = value->get<double>();
        if (std::isfinite(d) && std::trunc(d) == d && std::fabs(d) < 9.0e15) {
            return static_cast<int64_t>(d);
        }
    }
    return key.fallback;
}

double Preferences::get(const PreferenceKey<double>& key) const {
    std::optional<Json> value = m_store.value(key.name);
    return value && value->is_number() ? value->get<double>() : key.fallback;
}

OptionalText Preferences::get(const PreferenceKey<OptionalText>& key) const {
    std::optional<std::string> text = storedText(key.name);
    return text ? text : key.fallback;
}

TextList Preferences::get(const PreferenceKey<TextList>& key) const {
    std::optional<Json> value = m_store.value(key.name);
    if (!value || !value->is_array()) {
        return key.fallback;
    }
    TextList list;
    for (const Json& item : *value) {
        if (item.is_string()) {
            list.push_back(item.get<std::string>());
        }
    }
    return list;
}

Result<void> Preferences::set(const PreferenceKey<bool>& key, bool value) {
    return m_store.set(key.name, value);
}

Result<void> Preferences::set(const PreferenceKey<int64_t>& key, int64_t value) {
    return m_store.set(key.name, value);
}

Result<void> Preferences::set(const PreferenceKey<double>& key, double value) {
    return m_store.set(key.name, value);
}

Result<void> Preferences::set(const PreferenceKey<OptionalText>& key, const OptionalText& value) {
    return value ? m_store.set(key.name, *value) : m_store.remove(key.name);
}

Result<void> Preferences::set(const PreferenceKey<TextList>& key, const TextList& value) {
    return m_store.set(key.name, value);
}

project::FrameStyle Preferences::frameStyle() const {
    project::FrameStyle frame;
    frame.background = get(prefs::backdropBackground);
    frame.padding = get(prefs::backdropPadding);
    frame.cornerRadius = get(prefs::backdropCorner);
    frame.shadow = get(prefs::backdropShadow);
    return frame;
}

project::CursorStyle Preferences::cursorStyle() const {
    project::CursorStyle cursor;
    cursor.visible = get(prefs::cursorVisible);
    cursor.size = get(prefs::cursorSize);
    cursor.smoothing = get(prefs::cursorSmoothing);
    cursor.hideWhenIdle = get(prefs::cursorHideWhenIdle);
    return cursor;
}

project::CaptionStyle Preferences::captionStyle() const {
    project::CaptionStyle captions;
    captions.size = get(prefs::captionSize);
    captions.position = get(prefs::captionPosition);
    captions.background = get(prefs::captionBackground);
    captions.maxCharacters = get(prefs::captionLineLength);
    captions.highlightWords = get(prefs::captionHighlightWords);
    return captions;
}

project::CameraStyle Preferences::cameraStyle() const {
    project::CameraStyle camera;
    camera.layout = get(prefs::cameraLayout);
    camera.shape = get(prefs::cameraShape);
    camera.mirror = get(prefs::cameraMirror);
    return camera;
}

editor::DeadTimeOptions Preferences::deadTimeOptions() const {
    editor::DeadTimeOptions options;
    options.minimumLength = get(prefs::deadTimeMinimum);
    options.action = get(prefs::deadTimeAction);
    options.speed = get(prefs::deadTimeSpeed);
    return options;
}

}  // namespace quillo::app
