#pragma once

#include "query_api/answers.h"

/* The figures of a kind in its order; those without a value are missing. */
inline TFigures figures(TKind kind, std::initializer_list<TFigure> values)
{
    TFigures made;
    auto value = values.begin();
    for (const TFigureSpec &spec : figures_of(kind))
        made.all.push_back({&spec, value != values.end() ? *value++ : TFigure()});
    return made;
}
