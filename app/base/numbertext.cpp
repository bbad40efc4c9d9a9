#include "numbertext.h"

#include <QLocale>

QString GroupedNumber(qlonglong number)
{
    return QLocale(QLocale::English).toString(number);
}
