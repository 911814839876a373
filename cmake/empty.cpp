// Placeholder translation unit for a component with no sources yet.
