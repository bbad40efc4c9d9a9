#include "opening.h"

#include "noticeboard.h"

#include "tovcameragui.h"

namespace {

constexpr std::chrono::seconds Limit{60}; // of the camera library
constexpr std::uint64_t Kilobyte = 1024;

} // namespace

Opening::Opening(QWidget *window, std::function<QString()> what)
    : m_dialog(
          window, std::move(what), [this] { return Step(); }, Limit),
      m_action(m_dialog, [this] { m_progress.cancel = true; })
{
}

Opening::~Opening()
{
    m_action.End();
    if (m_forget)
        m_forget();
}

bool Opening::IsCancelled() const
{
    return m_action.IsGivenUp() && !m_action.IsOverdue();
}

bool Opening::IsOverdue() const
{
    return m_action.IsOverdue() || m_progress.overdue;
}

void Opening::TellWhy(QString const &camera, TovCam::OpenFailure const &failure) const
{
    QString const why = IsOverdue()
                            ? tr("%1 was given up: it took more than %2 s to open").arg(camera).arg(Limit.count())
                            : TovGui::OpenFailureText(camera, failure);
    if (!why.isEmpty())
        NoticeBoard::Instance().Report(NoticeTopic::Camera, NoticeLevel::Error, why);
}

WaitingDialog::Step Opening::Step() const
{
    using Stage = TovCam::OpenProgress::Stage;
    switch (m_progress.stage) {
    case Stage::Waiting:
        break;
    case Stage::Asking:
        return {tr("Asking whether it is there, and free")};
    case Stage::Description: {
        std::uint64_t const done = m_progress.bytes, total = m_progress.total;
        if (total == 0)
            return {tr("Downloading its description")};
        auto const inKilobytes = [](std::uint64_t bytes) {
            return QString::number((bytes + Kilobyte - 1) / Kilobyte);
        };
        return {tr("Downloading its description: %1 of %2 KB").arg(inKilobytes(done), inKilobytes(total)), done, total};
    }
    case Stage::Preparing:
        return {tr("Preparing its features")};
    case Stage::Over:
        return {tr("Reading its settings")};
    }
    return {tr("Opening the camera")};
}
