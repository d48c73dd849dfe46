#include "redaction_editor.h"

#include <algorithm>

#include "redaction.h"

namespace quillo::redaction {

using project::Redaction;

const std::vector<Redaction>& RedactionEditor::list() const {
    return m_editor.edits().redactionList();
}

std::optional<Redaction> RedactionEditor::selection() const {
    if (!m_selected || *m_selected >= list().size()) {
        return std::nullopt;
    }
    return m_pending ? m_pending : std::optional<Redaction>(list()[*m_selected]);
}

bool RedactionEditor::add(const Rect& rect) {
    double duration = m_editor.duration();
    double start = std::min(m_editor.currentTime(), std::max(duration - 0.1, 0.0));
    start = std::max(start, 0.0);
    double end = std::min(start + kAddedLength, duration);
    project::Edits candidate = m_editor.edits();
    std::vector<Redaction> redactions = candidate.redactionList();
    redactions.push_back(make(start, end, rect));
    candidate.redactions = redactions;
    if (!m_editor.commit(std::move(candidate), editor::Rebuild::No)) {
        return false;
    }
    m_pending.reset();
    m_selected = list().size() - 1;
    return true;
}

void RedactionEditor::select(std::optional<size_t> index) {
    m_pending.reset();
    m_selected = index && *index < list().size() ? index : std::nullopt;
}

void RedactionEditor::update(const Redaction& redaction) {
    if (m_selected && *m_selected < list().size()) {
        m_pending = redaction;
    }
}

bool RedactionEditor::commit() {
    if (!m_pending || !m_selected || *m_selected >= list().size()) {
        m_pending.reset();
        return false;
    }
    project::Edits candidate = m_editor.edits();
    std::vector<Redaction> redactions = candidate.redactionList();
    redactions[*m_selected] = *m_pending;
    candidate.redactions = redactions;
    m_pending.reset();
    return m_editor.commit(std::move(candidate), editor::Rebuild::No);
}

bool RedactionEditor::remove(size_t index) {
    if (index >= list().size()) {
        return false;
    }
    project::Edits candidate = m_editor.edits();
    std::vector<Redaction> redactions = candidate.redactionList();
    redactions.erase(redactions.begin() + static_cast<ptrdiff_t>(index));
    candidate.redactions = redactions;
    if (!m_editor.commit(std::move(candidate), editor::Rebuild::No)) {
        return false;
    }
    m_pending.reset();
    if (m_selected && *m_selected == index) {
        m_selected.reset();
    } else if (m_selected && *m_selected > index) {
        --*m_selected;
    }
    return true;
}

bool RedactionEditor::removeSelected() { return m_selected && remove(*m_selected); }

void RedactionEditor::setProposals(std::vector<Redaction> proposals) {
    m_proposals = std::move(proposals);
}

bool RedactionEditor::accept(std::optional<size_t> index) {
    if (index && *index >= m_proposals.size()) {
        return false;
    }
    project::Edits candidate = m_editor.edits();
    std::vector<Redaction> redactions = candidate.redactionList();
    if (index) {
        redactions.push_back(m_proposals[*index]);
    } else {
        redactions.insert(redactions.end(), m_proposals.begin(), m_proposals.end());
    }
    candidate.redactions = redactions;
    if (!m_editor.commit(std::move(candidate), editor::Rebuild::No)) {
        return false;
    }
    if (index) {
        m_proposals.erase(m_proposals.begin() + static_cast<ptrdiff_t>(*index));
    } else {
        m_proposals.clear();
    }
    return true;
}

}  // namespace quillo::redaction
