// What is outside of the program in the soak, in a process of its own, so that its cost is apart: the camera on the
// network, and whoever takes the frames of a recording away, for which no disk has room. It is told by lines, and
// answers each with one.
#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <deque>
#include <functional>

// The process itself: reads commands from the standard input until that ends.
//
//   set FEATURE VALUE                 ok
//   die | silence | restart [reset]   sent FRAMES LEFTOUT PACKETS RESENT PERCENT: so far, when nothing is under way
//   return [reset] | speak            ok
//   sent                              as above, while it goes on
//   files                             files COUNT: frames that were taken away, or are there
//   tables                            tables COUNT ROWS HOLES GAPS: of all recordings; HOLES are ids that are neither
//                                     rows nor told by them, GAPS what is told
//
// What fails is answered by "fail WHY". PERCENT is of one processor, since the last answer that told it.
int RunWorld(QString const &model, QString const &folder);

class World : public QObject
{
public:
    using Answer = std::function<void(QStringList const &words)>;

    // Starts this very program with `arguments`. Waits until the camera is there.
    explicit World(QStringList const &arguments);
    ~World() override;

    // The answer comes later, in the order of the questions, on the GUI thread.
    void Ask(QString const &command, Answer answer = {});
    bool Runs() const;

private:
    void Read();

    QProcess m_process;
    std::deque<Answer> m_answers;
};
