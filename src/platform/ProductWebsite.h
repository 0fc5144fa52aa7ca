#pragma once

// The product's web host, shared by the About window and the JVM agent's
// class-download URL. Plain HTTP on purpose: the agent fetches without TLS.
inline constexpr const char kProductWebHost[] = "http://www.quillonserver.com";
