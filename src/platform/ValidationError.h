#pragma once

#include <QString>

// Why a proposed value was refused by a validateX() function; views show
// `description` to the user.
struct ValidationError
{
    QString domain;
    int code = 0;
    QString description;
};
