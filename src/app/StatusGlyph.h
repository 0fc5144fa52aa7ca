#pragma once

#include <QImage>

// The status images of the tray and the application icon, drawn rather than
// shipped as artwork so that every size comes from the same shapes.
namespace StatusGlyph {

// A media-server box with a play mark (running) or a stop mark (stopped) and
// a status dot: green when running, grey when stopped. Dark outline over a
// light fill, so it reads on light and dark panels alike; `selected` is the
// highlighted variant (blue box, white marks) for an open menu.
QImage render(int size, bool running, bool selected);

// The application's own icon (About window, window icons): a blue box with
// a white play mark.
QImage appIcon(int size);

}
