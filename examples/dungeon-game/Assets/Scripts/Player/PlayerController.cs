using UnityEngine;
using Game.Combat;
using Game.Inventory;

namespace Game.Player
{
    // Moves the hero, turns it towards the cursor and fires the equipped weapon.
    [RequireComponent(typeof(CharacterController))]
    public class PlayerController : MonoBehaviour
    {
        [SerializeField] private float moveSpeed = 5f;
        [SerializeField] private float turnSpeed = 720f;
        [SerializeField] private PlayerInventory inventory;

        private CharacterController body;
        private PlayerHealth health;
        private Weapon equippedWeapon;
        private Vector3 aimDirection = Vector3.forward;

        private void Awake()
        {
            body = GetComponent<CharacterController>();
            health = GetComponent<PlayerHealth>();
        }

        private void OnEnable()
        {
            inventory.WeaponChanged += OnWeaponChanged;
        }

        private void OnDisable()
        {
            inventory.WeaponChanged -= OnWeaponChanged;
        }

        private void Start()
        {
            equippedWeapon = inventory.EquippedWeapon;
        }

        private void Update()
        {
            if (health.IsDead)
            {
                return;
            }

            Vector3 input = new Vector3(Input.GetAxisRaw("Horizontal"), 0f, Input.GetAxisRaw("Vertical"));
            body.SimpleMove(Vector3.ClampMagnitude(input, 1f) * moveSpeed);

            if (input.sqrMagnitude > 0.01f)
            {
                aimDirection = input.normalized;
            }
            Quaternion target = Quaternion.LookRotation(aimDirection);
            transform.rotation = Quaternion.RotateTowards(transform.rotation, target, turnSpeed * Time.deltaTime);

            if (Input.GetButton("Fire1") && equippedWeapon.CanFire)
            {
                equippedWeapon.Fire(aimDirection);
            }
        }

        // The inventory raises this with null when the hero drops or breaks the weapon.
        private void OnWeaponChanged(Weapon weapon)
        {
            equippedWeapon = weapon;
        }
    }
}
