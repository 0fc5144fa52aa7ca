#pragma once

#include <QLayout>
#include <QVBoxLayout>
#include <QWidget>

// Puts a tab's page into the tab's placeholder, laid out to fill it.
inline void addTabPage(QWidget *content, QWidget *page)
{
    QLayout *layout = content->layout();
    if (!layout) {
        layout = new QVBoxLayout(content);
        layout->setContentsMargins(0, 0, 0, 0);
    }
    layout->addWidget(page);
}
