"""What the mount tests and those of the command line share: a served tree put before the real kernel, watched from outside
and cleared away."""
