#pragma once

#include <QMessageBox>

namespace bench {

class FirmwareRoad;

/// Asks whether the image shall be downloaded, with both named and with what speaks against it; then, or when
/// nobody can tell, Cancel is the default. The answer is about just this image and this device: the box
/// closes by itself when one of them becomes another, or no download can start.
///
/// Deletes itself when it is closed.
class FirmwareQuestion : public QMessageBox
{
    Q_OBJECT

public:
    /// `road` has an image and a link, and must outlive the box.
    FirmwareQuestion(FirmwareRoad* road, QWidget* parent);

signals:
    /// Closed without an answer.
    void withdrawn();

private:
    void check();

    FirmwareRoad* m_road;
    int m_image; ///< its number
    QString m_asked;
};

} // namespace bench
