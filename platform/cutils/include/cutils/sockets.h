#pragma once

extern "C" {

// Names of this namespace are the paths /dev/socket/NAME.
enum { ANDROID_SOCKET_NAMESPACE_RESERVED = 1 };

// Connects the socket, of the given type, to the name. Returns fd, or -1 with errno. fd stays the
// caller's in both cases.
int socket_local_client_connect(int fd, const char* name, int namespace_id, int type);

}  // extern "C"
