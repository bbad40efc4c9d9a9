// Whether the analysis' answer is a measurement of the picture, in sentences for the operator. The analysis itself
// takes the samples as they are in memory, and the masks of the colours as they were made, whatever the picture is.
#pragma once

#include <QCoreApplication>
#include <QString>

class BayerHelper2;
struct ComplexHisto;
struct _TovImage;

// Any thread.
class Measurement
{
    Q_DECLARE_TR_FUNCTIONS(Measurement)
public:
    // Why the answer says nothing about the picture; empty when it does. Only the picture's header is read.
    static QString WhyNone(_TovImage const &picture, ComplexHisto const &answer, BayerHelper2 const &masks);
    // What makes correct figures misleading; empty for nothing.
    static QString Doubt(_TovImage const &picture, ComplexHisto const &answer, BayerHelper2 const &masks);
};
