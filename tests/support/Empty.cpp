// Keeps the support library buildable while no helper has a source file.
