#pragma once

// The product's web host, plain HTTP, without a trailing "/". The About
// window's pages and the JVM agent's class downloads both live under it.
inline constexpr const char kProductWebHost[] = "http://www.quillonserver.com";
