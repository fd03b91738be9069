// Placeholder translation unit for a library whose folder has no sources yet.
