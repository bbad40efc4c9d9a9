// An operator who never rests: opens and closes panels, zooms, looks closely, colours what is saturated, resizes the
// window. By the events that the display server would send, wherever a widget takes them. GUI thread.
#pragma once

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <random>
#include <vector>

class BlockWatch;
class QAbstractButton;
class QAction;
class QPoint;
class QWidget;
class TovScope;

class SoakClicks : public QObject
{
public:
    SoakClicks(TovScope &window, BlockWatch &watch);

    // A deed every 100 to 500 ms, until the end.
    void Begin();
    void End();
    long Count() const
    {
        return m_count;
    }
    // On the button of a toolbar, or else in the menu.
    void ClickAction(char const *name);
    static bool Click(QWidget *widget, QPoint const *at = nullptr, bool twice = false);

private:
    struct Deed
    {
        char const *name;
        int weight;
        std::function<void()> act;
    };

    void Next();
    QWidget *Picture();
    QPoint SomePlace(QWidget const *widget);
    template<typename W>
    W *Find(char const *name);
    void Toggle(char const *box);
    void Wheel();
    void Drag();
    void Menu();
    void Measure();
    void Resize();
    void LogControl(bool on);

    TovScope &m_window;
    BlockWatch &m_watch;
    std::vector<Deed> m_deeds;
    std::mt19937 m_random{11};
    bool m_runs = false;
    long m_count = 0;
};
