"""What the mount tests share: a served tree put before the real kernel, watched from outside and cleared away."""
