#include "settings_binder.h"

#include <cmath>

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTimer>

namespace quillo::views {

namespace {

QString toQString(const app::OptionalText& text) {
    return text ? QString::fromStdString(*text) : QString();
}

app::OptionalText fromQString(const QString& text) {
    QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return std::nullopt;
    }
    return trimmed.toStdString();
}

// Selects the item holding `value`, adding one labelled `label` when there is none.
void selectData(QComboBox* combo, const QVariant& value, const QString& label) {
    int index = combo->findData(value);
    if (index < 0) {
        combo->addItem(label, value);
        index = combo->count() - 1;
    }
    combo->setCurrentIndex(index);
}

}  // namespace

SettingsBinder::SettingsBinder(app::Preferences& preferences, QObject* parent)
    : QObject(parent), m_preferences(preferences) {}

void SettingsBinder::bind(std::function<void()> load) {
    m_loading = true;
    load();
    m_loading = false;
    m_loaders.push_back(std::move(load));
}

void SettingsBinder::reload() {
    m_loading = true;
    for (const auto& load : m_loaders) {
        load();
    }
    m_loading = false;
}

void SettingsBinder::report(const Result<void>& result) {
    if (result) {
        emit written();
    } else {
        emit failed(QString::fromStdString(result.error().message));
        // The control goes back to what is stored, once its own signal handling is done.
        QTimer::singleShot(0, this, &SettingsBinder::reload);
    }
}

QComboBox* SettingsBinder::makeCombo(const QString& name) {
    auto* combo = new QComboBox;
    combo->setAccessibleName(name);
    combo->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    return combo;
}

QCheckBox* SettingsBinder::check(const app::PreferenceKey<bool>& key, const QString& text) {
    auto* box = new QCheckBox(text);
    box->setAccessibleName(text);
    bind([this, key, box] { box->setChecked(m_preferences.get(key)); });
    connect(box, &QCheckBox::toggled, this, [this, key](bool on) {
        if (!m_loading) {
            report(m_preferences.set(key, on));
        }
    });
    return box;
}

QSpinBox* SettingsBinder::integer(const app::PreferenceKey<int64_t>& key, int minimum, int maximum,
                                  const QString& suffix, const QString& name) {
    auto* spin = new QSpinBox;
    spin->setRange(minimum, maximum);
    spin->setSuffix(suffix.isEmpty() ? suffix : " " + suffix);
    spin->setAccessibleName(name);
    // Typing "15" writes 15 once, not 1 and then 15.
    spin->setKeyboardTracking(false);
    bind([this, key, spin] {
        int64_t value = m_preferences.get(key);
        spin->setValue(
            static_cast<int>(std::clamp<int64_t>(value, spin->minimum(), spin->maximum())));
    });
    connect(spin, &QSpinBox::valueChanged, this, [this, key](int value) {
        if (!m_loading) {
            report(m_preferences.set(key, static_cast<int64_t>(value)));
        }
    });
    return spin;
}

QDoubleSpinBox* SettingsBinder::real(const app::PreferenceKey<double>& key, double minimum,
                                     double maximum, double step, int decimals,
                                     const QString& suffix, const QString& name, double scale) {
    auto* spin = new QDoubleSpinBox;
    spin->setDecimals(decimals);
    spin->setRange(minimum * scale, maximum * scale);
    spin->setSingleStep(step * scale);
    spin->setSuffix(suffix.isEmpty() ? suffix : (suffix == "×" ? suffix : " " + suffix));
    spin->setAccessibleName(name);
    spin->setKeyboardTracking(false);
    bind([this, key, spin, scale] { spin->setValue(m_preferences.get(key) * scale); });
    connect(spin, &QDoubleSpinBox::valueChanged, this, [this, key, scale, decimals](double value) {
        if (m_loading) {
            return;
        }
        // Store what the box shows, not the binary noise of the division.
        double stored = value / scale;
        double places = std::pow(10.0, decimals + std::log10(scale));
        report(m_preferences.set(key, std::round(stored * places) / places));
    });
    return spin;
}

QComboBox* SettingsBinder::integerChoice(const app::PreferenceKey<int64_t>& key,
                                         const std::vector<std::pair<QString, int64_t>>& choices,
                                         const std::function<QString(int64_t)>& other,
                                         const QString& name) {
    auto* combo = makeCombo(name);
    for (const auto& [label, value] : choices) {
        combo->addItem(label, QVariant::fromValue<qlonglong>(value));
    }
    bind([this, key, combo, other] {
        int64_t value = m_preferences.get(key);
        selectData(combo, QVariant::fromValue<qlonglong>(value), other(value));
    });
    connect(combo, &QComboBox::currentIndexChanged, this, [this, key, combo](int index) {
        if (!m_loading && index >= 0) {
            report(
                m_preferences.set(key, static_cast<int64_t>(combo->itemData(index).toLongLong())));
        }
    });
    return combo;
}

QComboBox* SettingsBinder::realChoice(const app::PreferenceKey<double>& key,
                                      const std::vector<std::pair<QString, double>>& choices,
                                      const std::function<QString(double)>& other,
                                      const QString& name) {
    auto* combo = makeCombo(name);
    for (const auto& [label, value] : choices) {
        combo->addItem(label, value);
    }
    bind([this, key, combo, other] {
        double value = m_preferences.get(key);
        selectData(combo, value, other(value));
    });
    connect(combo, &QComboBox::currentIndexChanged, this, [this, key, combo](int index) {
        if (!m_loading && index >= 0) {
            report(m_preferences.set(key, combo->itemData(index).toDouble()));
        }
    });
    return combo;
}

QComboBox* SettingsBinder::textChoice(const app::PreferenceKey<app::OptionalText>& key,
                                      const std::vector<std::pair<QString, QString>>& choices,
                                      bool editable, const QString& name) {
    auto* combo = makeCombo(name);
    combo->setEditable(editable);
    combo->setInsertPolicy(QComboBox::NoInsert);
    for (const auto& [label, value] : choices) {
        combo->addItem(label, value);
    }
    bind([this, key, combo] {
        QString value = toQString(m_preferences.get(key));
        selectData(combo, value, value);
    });
    auto store = [this, key](const QString& value) {
        if (!m_loading) {
            app::OptionalText text = fromQString(value);
            if (text != m_preferences.get(key)) {
                report(m_preferences.set(key, text));
            }
        }
    };
    connect(combo, &QComboBox::activated, this,
            [combo, store](int index) { store(combo->itemData(index).toString()); });
    if (editable) {
        // A typed value that matches a label stands for that choice.
        connect(combo->lineEdit(), &QLineEdit::editingFinished, this, [combo, store] {
            QString typed = combo->currentText();
            int index = combo->findText(typed);
            store(index >= 0 ? combo->itemData(index).toString() : typed);
        });
    }
    return combo;
}

QLineEdit* SettingsBinder::text(const app::PreferenceKey<app::OptionalText>& key,
                                const QString& placeholder, const QString& name) {
    auto* line = new QLineEdit;
    line->setPlaceholderText(placeholder);
    line->setAccessibleName(name);
    line->setClearButtonEnabled(true);
    bind([this, key, line] {
        QString value = toQString(m_preferences.get(key));
        // Text being typed stays until it is committed.
        if (line->hasFocus() && line->isModified()) {
            return;
        }
        if (line->text().trimmed() != value) {
            line->setText(value);
        }
    });
    connect(line, &QLineEdit::editingFinished, this, [this, key, line] {
        line->setModified(false);
        app::OptionalText value = fromQString(line->text());
        if (!m_loading && value != m_preferences.get(key)) {
            report(m_preferences.set(key, value));
        }
    });
    return line;
}

QWidget* SettingsBinder::folder(const app::PreferenceKey<app::OptionalText>& key,
                                const QString& fallback, const QString& name) {
    auto* box = new QWidget;
    QLineEdit* line = text(key, fallback, name);
    auto* choose = new QPushButton(tr("Choose…"), box);
    choose->setAccessibleName(tr("Choose %1").arg(name));
    auto* reset = new QPushButton(tr("Use Default"), box);
    reset->setAccessibleName(tr("Use the default %1").arg(name));
    auto* layout = new QHBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(line, 1);
    layout->addWidget(choose);
    layout->addWidget(reset);
    connect(choose, &QPushButton::clicked, this, [this, key, line, name, fallback] {
        QString start = line->text().isEmpty() ? fallback : line->text();
        QString chosen = QFileDialog::getExistingDirectory(line->window(), name, start);
        if (!chosen.isEmpty()) {
            line->setText(chosen);
            report(m_preferences.set(key, chosen.toStdString()));
        }
    });
    connect(reset, &QPushButton::clicked, this, [this, key, line] {
        line->clear();
        report(m_preferences.set(key, std::nullopt));
    });
    return box;
}

}  // namespace quillo::views
