#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/demo_script.h"
#include "base/preference_store.h"
#include "editor/dead_time_options.h"
#include "project/edits.h"
#include "record_shortcut.h"
#include "render/export_preset.h"

namespace quillo::app {

using agent::DemoPace;

// A setting: its key in preferences.json and the value it reads as when unset or stored with
// the wrong type (or, for choices, an unknown raw value).
template <class T>
struct PreferenceKey {
    std::string_view name;
    T fallback;
};

using OptionalText = std::optional<std::string>;
using TextList = std::vector<std::string>;

namespace prefs {
// Library, windows and start-up.
inline const PreferenceKey<OptionalText> libraryPath{"libraryPath", std::nullopt};
inline const PreferenceKey<bool> showMenuBarIcon{"showMenuBarIcon", true};
inline const PreferenceKey<bool> openAfterRecording{"openAfterRecording", true};
inline const PreferenceKey<bool> restoreTabs{"restoreTabs", true};
// Capture.
inline const PreferenceKey<int64_t> captureFPS{"captureFPS", 30};
inline const PreferenceKey<double> captureMaxDimension{"captureMaxDimension", 3840};
inline const PreferenceKey<RecordShortcut> recordShortcut{"recordShortcut",
                                                          RecordShortcut::CommandShift2};
// Polish of new recordings.
inline const PreferenceKey<bool> autoZoom{"autoZoom", true};
inline const PreferenceKey<double> autoZoomScale{"autoZoomScale", 1.8};
inline const PreferenceKey<bool> zoomFollowsCursor{"zoomFollowsCursor", true};
inline const PreferenceKey<bool> clickHighlights{"clickHighlights", true};
inline const PreferenceKey<bool> backdrop{"backdrop", true};
inline const PreferenceKey<int64_t> backdropBackground{"backdropBackground", 0};
inline const PreferenceKey<double> backdropPadding{"backdropPadding", 0.08};
inline const PreferenceKey<double> backdropCorner{"backdropCorner", 0.02};
inline const PreferenceKey<bool> backdropShadow{"backdropShadow", true};
inline const PreferenceKey<project::AspectRatio> defaultAspect{"defaultAspect",
                                                               firstCase<project::AspectRatio>()};
inline const PreferenceKey<bool> cursorVisible{"cursorVisible", true};
inline const PreferenceKey<double> cursorSize{"cursorSize", 1.4};
inline const PreferenceKey<double> cursorSmoothing{"cursorSmoothing", 0.35};
inline const PreferenceKey<bool> cursorHideWhenIdle{"cursorHideWhenIdle", false};
// Analyses of new recordings.
inline const PreferenceKey<bool> checkSensitiveInfo{"checkSensitiveInfo", false};
inline const PreferenceKey<bool> deadTimeAuto{"deadTimeAuto", false};
inline const PreferenceKey<double> deadTimeMinimum{"deadTimeMinimum", 1.5};
inline const PreferenceKey<editor::DeadTimeAction> deadTimeAction{
    "deadTimeAction", firstCase<editor::DeadTimeAction>()};
inline const PreferenceKey<double> deadTimeSpeed{"deadTimeSpeed", 4.0};
// Export.
inline const PreferenceKey<int64_t> gifFPS{"gifFPS", 12};
inline const PreferenceKey<render::ExportPreset> exportPreset{"exportPreset",
                                                              render::kDefaultExportPreset};
inline const PreferenceKey<bool> exportFollows{"exportFollows", true};
// Captions.
inline const PreferenceKey<bool> autoCaptions{"autoCaptions", false};
inline const PreferenceKey<OptionalText> captionLanguage{"captionLanguage", std::nullopt};
inline const PreferenceKey<double> captionSize{"captionSize", 1.0};
inline const PreferenceKey<project::CaptionPosition> captionPosition{
    "captionPosition", firstCase<project::CaptionPosition>()};
inline const PreferenceKey<project::CaptionBackground> captionBackground{
    "captionBackground", firstCase<project::CaptionBackground>()};
inline const PreferenceKey<int64_t> captionLineLength{"captionLineLength", 36};
inline const PreferenceKey<bool> captionHighlightWords{"captionHighlightWords", false};
// Camera. The layout and shape default to the camera style's own defaults (bottom-right
// circle), so an untouched setting and a fresh style agree.
inline const PreferenceKey<OptionalText> cameraDevice{"cameraDevice", std::nullopt};
inline const PreferenceKey<project::CameraLayout> cameraLayout{"cameraLayout",
                                                               project::CameraStyle{}.layout};
inline const PreferenceKey<project::CameraShape> cameraShape{"cameraShape",
                                                             project::CameraStyle{}.shape};
inline const PreferenceKey<bool> cameraMirror{"cameraMirror", project::CameraStyle{}.mirror};
inline const PreferenceKey<bool> cameraEnabled{"cameraEnabled", false};
// Demos, agents and the assistant.
inline const PreferenceKey<DemoPace> demoPace{"demoPace", DemoPace::Normal};
inline const PreferenceKey<bool> demoRehearse{"demoRehearse", true};
inline const PreferenceKey<bool> agentServerEnabled{"agentServerEnabled", true};
inline const PreferenceKey<OptionalText> assistantEngine{"assistantEngine", std::nullopt};
inline const PreferenceKey<OptionalText> assistantModel{"assistantModel", std::nullopt};
inline const PreferenceKey<OptionalText> assistantEffort{"assistantEffort", std::nullopt};
inline const PreferenceKey<bool> assistantWrites{"assistantWrites", true};
inline const PreferenceKey<OptionalText> claudeModel{"claudeModel", std::nullopt};
inline const PreferenceKey<OptionalText> claudeEffort{"claudeEffort", std::nullopt};
// The codex command chosen in Settings; none: found automatically.
inline const PreferenceKey<OptionalText> codexPath{"codexPath", std::nullopt};
// Held by the studio model.
inline const PreferenceKey<bool> systemAudio{"systemAudio", true};
inline const PreferenceKey<bool> microphone{"microphone", false};
inline const PreferenceKey<int64_t> countdown{"countdown", 3};
inline const PreferenceKey<bool> stepAside{"stepAside", true};
inline const PreferenceKey<bool> floatingControls{"floatingControls", true};
inline const PreferenceKey<bool> smoothCursor{"smoothCursor", true};
inline const PreferenceKey<bool> autoPolish{"autoPolish", true};
inline const PreferenceKey<bool> assistantOpen{"assistantOpen", false};
inline const PreferenceKey<TextList> openTabs{"openTabs", {}};
inline const PreferenceKey<bool> migratedFromPallo{"migratedFromPallo", false};
}  // namespace prefs

// Typed access to the user's settings over a PreferenceStore. Reads never fail: a missing key,
// a value of the wrong type or an unknown choice reads as the key's fallback. Writes store the
// value at once (choices as their raw text) and tell the observers. Thread: the main queue for
// observers; reads are safe anywhere.
class Preferences {
public:
    explicit Preferences(PreferenceStore& store) : m_store(store) {}

    // The user's own settings ($XDG_CONFIG_HOME/Quillo/preferences.json), made on first use.
    static Preferences& shared();

    bool get(const PreferenceKey<bool>& key) const;
    int64_t get(const PreferenceKey<int64_t>& key) const;
    double get(const PreferenceKey<double>& key) const;
    OptionalText get(const PreferenceKey<OptionalText>& key) const;
    TextList get(const PreferenceKey<TextList>& key) const;
    template <class E>
    requires std::is_enum_v<E> E get(const PreferenceKey<E>& key)
    const;

    Result<void> set(const PreferenceKey<bool>& key, bool value);
    Result<void> set(const PreferenceKey<int64_t>& key, int64_t value);
    Result<void> set(const PreferenceKey<double>& key, double value);
    // None removes the key.
    Result<void> set(const PreferenceKey<OptionalText>& key, const OptionalText& value);
    Result<void> set(const PreferenceKey<TextList>& key, const TextList& value);
    template <class E>
    requires std::is_enum_v<E> Result<void> set(const PreferenceKey<E>& key, E value);

    // Composite settings for new recordings and analyses.
    project::FrameStyle frameStyle() const;
    project::CursorStyle cursorStyle() const;
    project::CaptionStyle captionStyle() const;
    project::CameraStyle cameraStyle() const;
    editor::DeadTimeOptions deadTimeOptions() const;

    PreferenceStore::ObserverId addObserver(std::function<void()> observer) {
        return m_store.addObserver(std::move(observer));
    }
    void removeObserver(PreferenceStore::ObserverId id) { m_store.removeObserver(id); }
    PreferenceStore& store() { return m_store; }

private:
    std::optional<std::string> storedText(std::string_view key) const;

    PreferenceStore& m_store;
};

template <class E>
requires std::is_enum_v<E> E Preferences::get(const PreferenceKey<E>& key)
const {
    std::optional<std::string> raw = storedText(key.name);
    if (!raw) {
        return key.fallback;
    }
    return fromRawValue<E>(*raw).value_or(key.fallback);
}

template <class E>
requires std::is_enum_v<E> Result<void> Preferences::set(const PreferenceKey<E>& key, E value) {
    return m_store.set(key.name, std::string(rawValue(value)));
}

}  // namespace quillo::app
