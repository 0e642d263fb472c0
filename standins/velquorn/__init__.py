"""Stand-in for the velquorn server's package, for using next_steps without the server.

Installed beside the server, the server's own package takes this one's place.
"""
