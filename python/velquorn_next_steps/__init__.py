"""The ``velquorn-next-steps`` command and its bundled example answers.

The module itself is ``velquorn.tool_handlers.next_steps``, inside the
server's package; this package holds what this project adds around it.
"""
