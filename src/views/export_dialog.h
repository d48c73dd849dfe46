#pragma once

#include <filesystem>
#include <map>
#include <optional>

#include <QDialog>

#include "editor_session.h"
#include "render/export_preset.h"

class QButtonGroup;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QRadioButton;
class QWidget;

namespace quillo::views {

class ExportJob;

// The export sheet of one open recording: the platform presets (Custom with its own format and
// size), reframing for tall and square presets, where the file will go, then the export itself
// with progress and Cancel, and at the end the file with "Show in Folder". The chosen preset and
// framing are remembered in the preferences. GUI thread only.
class ExportDialog : public QDialog {
    Q_OBJECT

public:
    ExportDialog(EditorSession& session, QWidget* parent = nullptr);
    ~ExportDialog() override;

    // The presets offered, in order (the same ones the export tool offers).
    static std::vector<render::ExportPreset> offeredPresets();

    render::ExportPreset preset() const;
    // The finished file, once an export completed.
    const std::optional<std::filesystem::path>& exported() const { return m_exported; }

    // Escape while exporting cancels the export instead of closing.
    void reject() override;

private:
    enum class Stage { Choosing, Exporting, Finished };

    void buildChoices(QWidget* page);
    render::ExportSpec spec() const;
    std::string fileName() const;
    // Shows the options the preset allows and where the file will go.
    void updateChoices();
    void startExport();
    void exportEnded(const QString& error);
    void showStage(Stage stage);

    EditorSession& m_session;
    ExportJob* m_job = nullptr;
    Stage m_stage = Stage::Choosing;
    std::optional<std::filesystem::path> m_exported;

    QWidget* m_choices = nullptr;
    QButtonGroup* m_presets = nullptr;
    QWidget* m_customRow = nullptr;
    QComboBox* m_format = nullptr;
    QComboBox* m_size = nullptr;
    QWidget* m_framingRow = nullptr;
    QRadioButton* m_follow = nullptr;
    QRadioButton* m_fit = nullptr;
    QLabel* m_destination = nullptr;
    QWidget* m_progressRow = nullptr;
    QProgressBar* m_progress = nullptr;
    QLabel* m_percent = nullptr;
    QLabel* m_message = nullptr;
    QWidget* m_doneRow = nullptr;
    QLabel* m_file = nullptr;
    QPushButton* m_showInFolder = nullptr;
    QPushButton* m_cancel = nullptr;
    QPushButton* m_export = nullptr;
    QPushButton* m_close = nullptr;
};

}  // namespace quillo::views
