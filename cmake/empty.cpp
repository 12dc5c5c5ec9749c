// Keeps a library target valid while its directory has no sources of its own.
