// What nearly every test reads, compiled once.
