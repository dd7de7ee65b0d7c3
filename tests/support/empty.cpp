// Keeps the support library non-empty before any generator exists.
