#pragma once

#include <functional>
#include <utility>
#include <vector>

#include <QComboBox>
#include <QObject>
#include <QString>

#include "app/preferences.h"

class QCheckBox;
class QDoubleSpinBox;
class QLineEdit;
class QSpinBox;

namespace quillo::views {

// Makes controls bound to preference keys: each shows its key's stored value and writes a
// change at once through Preferences::set (a failed write is reported through `failed`).
// reload() puts every control back to the stored values without writing anything back, for
// changes that came from elsewhere. Thread: the GUI thread.
class SettingsBinder : public QObject {
    Q_OBJECT

public:
    explicit SettingsBinder(app::Preferences& preferences, QObject* parent = nullptr);
    app::Preferences& preferences() { return m_preferences; }

    QCheckBox* check(const app::PreferenceKey<bool>& key, const QString& text);
    // An integer with a unit ("fps", "characters").
    QSpinBox* integer(const app::PreferenceKey<int64_t>& key, int minimum, int maximum,
                      const QString& suffix, const QString& name);
    // A real number shown `scale` times larger (100 for percentages) with `decimals` places.
    QDoubleSpinBox* real(const app::PreferenceKey<double>& key, double minimum, double maximum,
                         double step, int decimals, const QString& suffix, const QString& name,
                         double scale = 1);
    // Fixed choices of a number; a stored value that is not among them is shown as
    // `other(value)` and kept.
    QComboBox* integerChoice(const app::PreferenceKey<int64_t>& key,
                             const std::vector<std::pair<QString, int64_t>>& choices,
                             const std::function<QString(int64_t)>& other, const QString& name);
    QComboBox* realChoice(const app::PreferenceKey<double>& key,
                          const std::vector<std::pair<QString, double>>& choices,
                          const std::function<QString(double)>& other, const QString& name);
    // Choices of an optional text; an empty value stands for none. Editable combos also take
    // any typed text (written when editing finishes).
    QComboBox* textChoice(const app::PreferenceKey<app::OptionalText>& key,
                          const std::vector<std::pair<QString, QString>>& choices, bool editable,
                          const QString& name);
    // A free optional text: empty stores none.
    QLineEdit* text(const app::PreferenceKey<app::OptionalText>& key, const QString& placeholder,
                    const QString& name);
    // A folder: its path (placeholder `fallback` when none), "Choose…" and "Use Default".
    QWidget* folder(const app::PreferenceKey<app::OptionalText>& key, const QString& fallback,
                    const QString& name);

    // An enumeration's cases, labelled by `label`, stored as their raw values.
    template <class E>
    QComboBox* choice(const app::PreferenceKey<E>& key, const std::function<QString(E)>& label,
                      const QString& name) {
        auto* combo = makeCombo(name);
        for (const auto& [item, raw] : EnumTable<E>::cases) {
            combo->addItem(label(item),
                           QString::fromUtf8(raw.data(), static_cast<int>(raw.size())));
        }
        bind([this, key, combo] {
            std::string_view raw = rawValue(m_preferences.get(key));
            combo->setCurrentIndex(
                combo->findData(QString::fromUtf8(raw.data(), static_cast<int>(raw.size()))));
        });
        connect(combo, &QComboBox::currentIndexChanged, this, [this, key, combo](int index) {
            if (m_loading || index < 0) {
                return;
            }
            if (auto value = fromRawValue<E>(combo->itemData(index).toString().toStdString())) {
                report(m_preferences.set(key, *value));
            }
        });
        return combo;
    }

    // Sets every control from the stored values; nothing is written.
    void reload();

signals:
    // A write failed: the message to show.
    void failed(const QString& message);
    // A write went through.
    void written();

private:
    QComboBox* makeCombo(const QString& name);
    // Registers a control's loader and runs it once.
    void bind(std::function<void()> load);
    void report(const Result<void>& result);

    app::Preferences& m_preferences;
    std::vector<std::function<void()>> m_loaders;
    bool m_loading = false;
};

}  // namespace quillo::views
