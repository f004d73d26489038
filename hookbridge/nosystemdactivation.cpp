// libdbus's static archive refers to systemd's socket activation, which only a D-Bus server
// listening for connections uses. The helper is a client that never listens, so these stand in
// for it: linking libdbus statically without them would load libsystemd and its five
// compression and crypto libraries on every hook, most of the helper's start-up time.

extern "C" {

int sd_listen_fds(int)
{
    return 0;
}

int sd_is_socket(int, int, int, int)
{
    return 0;
}

} // extern "C"
