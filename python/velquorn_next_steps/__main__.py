"""``python -m velquorn_next_steps``: the ``velquorn-next-steps`` command."""

import sys

from velquorn_next_steps.cli import main

sys.exit(main())
