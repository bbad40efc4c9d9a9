#include "tovcameragui.h"

#include "tovplaintext.h"

#include <QCoreApplication>

namespace {

struct Texts
{
    Q_DECLARE_TR_FUNCTIONS(OpenFailureText)
};

} // namespace

QString TovGui::OpenFailureText(QString const &camera, TovCam::OpenFailure const &failure)
{
    using TovCam::OpenRefusal;
    // Of the camera or the system.
    QString const place = TovPlainLine(QString::fromStdString(failure.place));
    QString const reason = TovPlainLine(QString::fromLocal8Bit(failure.reason.c_str()));
    auto const withReason = [&](QString const &text) {
        return reason.isEmpty() ? text : text + QStringLiteral(": ") + reason;
    };
    switch (failure.refusal) {
    case OpenRefusal::None:
        break;
    case OpenRefusal::NoAnswer:
        return withReason(Texts::tr("%1 does not answer").arg(camera));
    case OpenRefusal::InUse:
        if (failure.isOurs)
            return Texts::tr("%1 is in use by this program").arg(camera);
        return place.isEmpty() ? Texts::tr("%1 is in use, by this or another program").arg(camera)
                               : Texts::tr("%1 is in use by another program (%2)").arg(camera, place);
    case OpenRefusal::Description:
        return withReason(Texts::tr("%1 answers, but its description is damaged").arg(camera));
    case OpenRefusal::NoRight:
        return withReason(Texts::tr("%1: no right to open the USB device: %2").arg(camera, place));
    }
    return {};
}
