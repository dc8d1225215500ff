// Holds the place of the product library until its modules stand here.
