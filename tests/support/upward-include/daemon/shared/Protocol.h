// A header of the shared daemon library, named bare by the one below.
