// The process that reads both sides' trace files all the while.
#ifndef TESTS_SOAK_VIEWER_H
#define TESTS_SOAK_VIEWER_H

namespace soak {

/**
 * Reads the files, sends a byte, reads them over and over, and once more when the other end of the socket is closed.
 * Throws when a file cannot be read, when an entry is damaged, and when a file has nothing new at the last reading.
 */
int view_traces(int socket);

}  // namespace soak

#endif
