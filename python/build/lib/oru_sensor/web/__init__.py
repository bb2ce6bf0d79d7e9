"""Live view of the sensors in a browser: `python3 -m oru_sensor.web`.

A small HTTP server (standard library only) that streams readings to the
page by server-sent events and takes the page's controls as POST requests.
"""
